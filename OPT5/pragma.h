// Symbol and loop pragmas of the intermediate file.

#ifndef OPT5_PRAGMA_H
#define OPT5_PRAGMA_H

#include <cstdint>
#include <string>
#include <vector>

// The highest pragma kind.
constexpr int LAST_PRAGMA_KIND = 125;

// Kinds that code tests by number; the full list of names stands in pragma.cpp.
enum PRAGMA_KIND : std::uint8_t {
    PRAG_INVALID = 0,
    PRAG_DATA_ALIGN = 1,
    PRAG_DATA_SECTION = 2,
    PRAG_FUNC_NEVER_RETURNS = 3,
    PRAG_FUNC_CANNOT_INLINE = 4,
    PRAG_FUNC_NO_GLOBAL_ASG = 5,
    PRAG_FUNC_NO_IND_ASG = 6,
    PRAG_FUNC_IS_PURE = 7,
    PRAG_FUNC_IS_SYSTEM = 8,
    PRAG_INTERRUPT = 12,
    PRAG_PORT = 13,
    PRAG_INLINE = 14,
    PRAG_SHARED = 18,
    PRAG_SHAREDPP = 19,
    PRAG_FUNC_EXT_CALLED = 23,
    PRAG_REENTRANT = 24,
    PRAG_CODE_SECTION = 27,
    PRAG_NMI_INTERRUPT = 31,
    PRAG_IDENT = 35,
    PRAG_UNROLL = 37,
    PRAG_UNROLL_AMOUNT = 38,
    PRAG_MUST_ITERATE = 39,
    PRAG_PROB_ITERATE = 40,
    PRAG_SRC_LANGUAGE = 49,
    PRAG_UNUSED = 50,
    PRAG_SCOPING_FUNC = 51,
    PRAG_SYM_IS_REFERENCED = 52,
    PRAG_FUNC_IS_NONCONFORMING = 54,
    PRAG_TRANSLATION_UNIT_ID = 55,
    PRAG_LOOP_FLAGS = 57,
    PRAG_IS_CLASS_MEMBER = 58,
    PRAG_SYM_IS_DEAD = 59,
    PRAG_COMDAT_GROUP = 69,
    PRAG_FUNC_IS_CTOR_DTOR = 71,
    PRAG_SYM_VISIBILITY = 72,
    PRAG_FUNC_ESPEC = 75,
    PRAG_FUNC_SYNONYM = 78,
    PRAG_FUNC_RET_BY_CCTOR = 81,
    PRAG_NORVANE_WEAK = 83,
    PRAG_HOOK_FUNCTION = 86,
    PRAG_FUNC_ALWAYS_INLINE = 88,
    PRAG_INTR_FUNC = 90,
    PRAG_TRAP_FUNC = 91,
    PRAG_RETAIN = 95,
    PRAG_FUNC_IN_INIT_ARRAY = 97,
    PRAG_LOCATION = 100,
    PRAG_NOINIT = 101,
    PRAG_PERSISTENT = 102,
};

// One pragma: on a symbol's chain (head-inserted), or standing alone as a statement.
struct PRAGMA {
    std::uint8_t kind = PRAG_INVALID;
    std::vector<std::string> args;
    PRAGMA* next = nullptr;

    // The kind's name, "unknown" beyond LAST_PRAGMA_KIND.
    const char* name() const;
};

// The name of a kind, "unknown" beyond LAST_PRAGMA_KIND.
const char* pragma_kind_name(int kind);

// Whether the pragma on a function says nothing that keeps it from sharing its body with an equal one.
bool pragma_is_ignorable(int kind);

// The kind of that name, or -1.
int pragma_kind_of_name(const char* name);

#endif
