#include "profile_spreading.h"

#include <algorithm>
#include <cstdint>
#include <map>

#include "call_sites.h"
#include "fileopt.h"
#include "inliner.h"
#include "inliner_selection.h"
#include "node.h"
#include "opcodes.h"
#include "symbol.h"
#include "types.h"

namespace {

constexpr std::uint32_t HAS_PROFILE = 2; // FUNINFO::profile_state

void add_count(FUNINFO* function, double amount) {
    if (function->profile_state == HAS_PROFILE) return;
    const double known = function->entry_count == UNKNOWN_COUNT ? 0 : function->entry_count;
    function->entry_count =
        static_cast<std::uint32_t>(std::min(known + amount, static_cast<double>(LARGEST_COUNT)));
}

// The functions that an indirect call with these arguments may reach, found once for each list of types.
class ANONYMOUS_FUNCTIONS {
  public:
    const std::vector<FUNINFO*>& matching(NODE* arguments) {
        std::vector<unsigned> types;
        for (const NODE* list = arguments; list != nullptr;
             list = list->op == op::COMMA ? list->left : nullptr) {
            const NODE* argument = list->op == op::COMMA ? list->right : list;
            types.push_back(argument->type->uid());
            types.push_back(argument->op == op::ICON && argument->u.lval == INT65::from_signed(0) ? 1 : 0);
        }
        const auto [place, is_new] = by_types_.try_emplace(std::move(types));
        if (!is_new) return place->second;
        for (FUNINFO* function : fileinfo.anonymous)
            if (function->symbol != nullptr && function_is_defined(function) &&
                arguments_fit_prototype(arguments, function))
                place->second.push_back(function);
        return place->second;
    }

  private:
    std::map<std::vector<unsigned>, std::vector<FUNINFO*>> by_types_;
};

void spread_from(const CALLSITE& site, ANONYMOUS_FUNCTIONS& anonymous) {
    const double count =
        std::min(site.caller->entry_count * site.frequency, static_cast<double>(LARGEST_COUNT));
    if (site.callee != nullptr) {
        if (site.callee->symbol != nullptr) add_count(site.callee, count);
        return;
    }
    const std::vector<FUNINFO*>& anons = anonymous.matching(site.args);
    const int split_amount =
        anons.empty() ? 0
                      : static_cast<int>(std::min(count / static_cast<double>(anons.size()), 2147483647.0));
    comment_on_inlining("[%d matching anons, split_amount is %d]\n", static_cast<int>(anons.size()),
                        split_amount);
    for (FUNINFO* function : anons) {
        add_count(function, split_amount);
        comment_on_inlining("[anon count for %s updated to %d]\n", function->name.c_str(),
                            static_cast<int>(std::min(function->entry_count, 2147483647u)));
    }
}

} // namespace

void spread_profile_counts(const std::vector<FUNINFO*>& functions) {
    forget_spread_counts(functions);
    ANONYMOUS_FUNCTIONS anonymous;
    for (FUNINFO* function : functions) {
        if (function->entry_count == UNKNOWN_COUNT) function->entry_count = 1;
        for (const CALLSITE* site : function->callsites) spread_from(*site, anonymous);
    }
}

void forget_spread_counts(const std::vector<FUNINFO*>& functions) {
    for (FUNINFO* function : functions)
        if (function->profile_state != HAS_PROFILE) function->entry_count = UNKNOWN_COUNT;
}
