// Lowering of a function's exception table: the clean-ups become code behind the body, which the machine runs
// on its way to a handler.

#include "OPT5/opcodes.h"
#include "tools/icode-run/lowering.h"

namespace run {

void lowering::lower_regions() {
    if (source_.has_psn && !source_.eht.empty())
        out_->lines.push_back(
            {static_cast<std::uint32_t>(out_->code.size()), source_.psn.file, source_.psn.line});
    scope_ = 0;
    for (const EHT_ENTRY& entry : source_.eht) {
        const std::size_t number = out_->regions.size();
        if (entry.first != number)
            bad(nullptr, "has number " + std::to_string(entry.first) + " at place " + std::to_string(number) +
                             " of its exception table");
        exception_region& region = out_->regions.emplace_back();
        region.kind = entry.kind;
        region.link = entry.third;
        for (const I_CATCH_ENTRY& clause : entry.catches)
            region.clauses.push_back({clause.type_name, clause.value, clause.flag});
        if (entry.kind != EHK_EXPR) continue;
        barrier_ = region.cleanup_pc = static_cast<std::uint32_t>(out_->code.size());
        results_used_ = 0;
        lower_tree(act::EFFECT, static_cast<const tree*>(entry.tree));
        close_segment();
        emit(CLEANUP_END);
    }
}

// The value is 0 when control comes by; what catches an exception stores another one into the register and
// goes on behind.
void lowering::push_eh_switch(const tree* t) {
    if (out_->eh_switch.pc != resume_point::NONE) bad(t, "is the second EH switch");
    if (!items_.empty()) bad(t, "is an EH switch inside a larger expression");
    const scalar rep = scalar_of(t->type);
    if (!rep.has_value() || rep.is_float()) bad(t, "is an EH switch that is no integer");
    count(ARITHMETIC_OP);
    close_segment();
    const std::uint32_t reg = new_temp();
    emit(CONSTANT, reg);
    barrier_ = static_cast<std::uint32_t>(out_->code.size());
    out_->eh_switch = {barrier_, reg, rep};
    push(temp_item(reg, rep));
}

} // namespace run
