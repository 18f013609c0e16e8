#include "pragma.h"

#include <cstring>

namespace {

// Indexed by kind.
const char* const kind_names[LAST_PRAGMA_KIND + 1] = {
    "INVALID",
    "DATA_ALIGN",
    "DATA_SECTION",
    "FUNC_NEVER_RETURNS",
    "FUNC_CANNOT_INLINE",
    "FUNC_NO_GLOBAL_ASG",
    "FUNC_NO_IND_ASG",
    "FUNC_IS_PURE",
    "FUNC_IS_SYSTEM",
    "NO_INTERRUPT",
    "NEAR",
    "FAR",
    "INTERRUPT",
    "PORT",
    "INLINE",
    "OVLY_INDIRECT",
    "NO_OVLY",
    "FUNC_NOT_IND_CALLED",
    "SHARED",
    "SHAREDPP",
    "DUAL_STATE",
    "TASK",
    "OVLY_IND_CALLS",
    "FUNC_EXT_CALLED",
    "REENTRANT",
    "CALLS",
    "SWI_ALIAS",
    "CODE_SECTION",
    "TRAP",
    "FUNC_INTERRUPT_THRESHOLD",
    "FUNC_NO_MDEP",
    "NMI_INTERRUPT",
    "PROTECT_VOLATILE",
    "STRUCT_ALIGN",
    "DATA_MEM_BANK",
    "IDENT",
    "OPT_OVERRIDE",
    "UNROLL",
    "UNROLL_AMOUNT",
    "MUST_ITERATE",
    "PROB_ITERATE",
    "SRC_LOOP",
    "ALIAS_ADVICE",
    "ALIGN_ADVICE",
    "INLINE_ADVICE",
    "WRAP_ADVICE",
    "FAST_FUNC_CALL",
    "MARRAK_CALL",
    "MARRAK_FAR_CALL",
    "SRC_LANGUAGE",
    "UNUSED",
    "SCOPING_FUNC",
    "SYM_IS_REFERENCED",
    "STANDARD_LIBRARY_FUNCTION",
    "FUNC_IS_NONCONFORMING",
    "TRANSLATION_UNIT_ID",
    "TRIP_CNTR_MUNGED",
    "LOOP_FLAGS",
    "IS_CLASS_MEMBER",
    "SYM_IS_DEAD",
    "NO_ALIAS",
    "REG_FLAGS",
    "REG_MAP",
    "SP_CONSTRAINT",
    "II_ESTIMATE",
    "UNIT_RESOURCES",
    "SP_HINDRANCES",
    "READ_WRITE",
    "NO_ALIAS_CLONE",
    "COMDAT GROUP",
    "DEFAULT_NEVER_EXECUTED",
    "FUNC_IS_CTOR_DTOR",
    "SYM_VISIBILITY",
    "DLLEXPORT_OBSOLETE",
    "FS_DYNAMIC_INIT",
    "FUNC_ESPEC",
    "FUNC_EXCEPTIONS_NOUNWIND",
    "TESSUN_CALL",
    "FUNC_SYNONYM",
    "BIS_IE1_INTERRUPT",
    "LOOP_NO_ALIAS",
    "FUNC_RET_BY_CCTOR",
    "CODE_ALIGN",
    "NORVANE_WEAK",
    "WORD_MODE_FUNC",
    "NO_HOOKS",
    "HOOK_FUNCTION",
    "FUNC_NUM_CALLED",
    "FUNC_ALWAYS_INLINE",
    "FUNC_PPROF_INFO",
    "INTR_FUNC",
    "TRAP_FUNC",
    "VECTOR_EQUALS",
    "CODE_STATE",
    "FUNC_RET_UNIQUE_POINTER",
    "RETAIN",
    "CLINK",
    "FUNC_IN_INIT_ARRAY",
    "VCC_VREG",
    "VISOR_REG",
    "LOCATION",
    "NOINIT",
    "PERSISTENT",
    "LPM_INFO",
    "PORTS_INIT_INFO",
    "FUNC_HAS_FP_INTERFACE",
    "THREAD_LOCAL",
    "CREGISTER",
    "INS_PROPS",
    "FRAM_LOCKIO",
    "FRAM_WAITSTATE",
    "HW_MPY32",
    "PARALLEL_LOOP",
    "HW_MPY_INTR_SAFE",
    "NORVANE_PATCHABLE",
    "TRAMPOLINE",
    "RAMFUNC",
    "FUNC_IS_NAKED",
    "LUMEN_STATUS",
    "BLOCKED",
    "NOBLOCKED",
    "MMA_LOOP",
    "FUNC_IS_INTERNAL_RUNTIME",
    "COALESCE_LOOP",
    "NO_COALESCE_LOOP",
    "NO_NLC",
};

} // namespace

bool pragma_is_ignorable(int kind) {
    switch (kind) {
        case PRAG_FUNC_NEVER_RETURNS:
        case PRAG_FUNC_NO_GLOBAL_ASG:
        case PRAG_FUNC_NO_IND_ASG:
        case PRAG_FUNC_IS_PURE:
        case PRAG_INLINE:
        case PRAG_IDENT:
        case PRAG_SRC_LANGUAGE:
        case PRAG_UNUSED:
        case PRAG_TRANSLATION_UNIT_ID:
        case PRAG_IS_CLASS_MEMBER:
        case PRAG_COMDAT_GROUP:
        case PRAG_FUNC_IS_CTOR_DTOR:
        case PRAG_SYM_VISIBILITY: return true;
        default: return false;
    }
}

const char* pragma_kind_name(int kind) {
    return kind >= 0 && kind <= LAST_PRAGMA_KIND ? kind_names[kind] : "unknown";
}

const char* PRAGMA::name() const { return pragma_kind_name(kind); }

int pragma_kind_of_name(const char* name) {
    for (int kind = 0; kind <= LAST_PRAGMA_KIND; kind++)
        if (std::strcmp(kind_names[kind], name) == 0) return kind;
    return -1;
}
