#include "inliner_report.h"

#include <cstdio>

#include "debug.h"
#include "fileopt.h"
#include "files.h"
#include "in_function.h"
#include "inliner.h"
#include "pragma.h"
#include "psn.h"
#include "symbol.h"

std::string CALLSITE::description() const {
    const char* file = psn == nullptr ? "NO_PSN_FILE" : psn->file == nullptr ? "NO_FILE" : psn->file;
    const unsigned line = psn == nullptr ? 0 : psn->line;
    return "call from " + caller->name + " (" + file + " " + std::to_string(line) + ") to " +
           (callee != nullptr ? callee->name : "(nil)");
}

namespace {

// The integrator leaves calls of functions that nobody has declared inline alone below level 3.
bool is_left_by_integration(const CALLSITE& site) {
    if (is_always_inlined(site.callee) || is_declared_inline(site.callee)) return false;
    const IN_FUNCTION caller(site.caller);
    return opt_level() <= 2 || auto_inline() == 0;
}

std::string units(std::int64_t count) { return std::to_string(count) + (count == 1 ? " unit" : " units"); }

// A candidate that is not taken has many callers, or it would have passed.
std::string why_not_chosen(const FUNINFO* callee) {
    std::string text = "with " + units(callee->size);
    if (callee->nCallers > 1) text += " and " + std::to_string(callee->nCallers) + " calls";
    return text + " it is too large";
}

std::string why_too_large(const CALLSITE& site) {
    const IN_FUNCTION caller(site.caller);
    return "it has " + units(site.callee->size) + ", and the limit is " + std::to_string(auto_inline());
}

std::string reason(const CALLSITE& site) {
    const FUNINFO* callee = site.callee;
    switch (site.fate) {
        case SITE_FATE::INLINED: return "only a function declared inline is, below level 3";
        case SITE_FATE::NOT_CHOSEN: return why_not_chosen(callee);
        case SITE_FATE::GROWTH: return site.caller->name + "() or the program would grow too much";
        case SITE_FATE::NOT_WANTED: return "it would need too many registers, or gain nothing";
        case SITE_FATE::UNKNOWN_CALLEE: return "which function it calls is known only at run time";
        case SITE_FATE::NOT_DEFINED: return "it is not defined in this file";
        case SITE_FATE::RECURSIVE: return "it may be recursive";
        case SITE_FATE::VARARGS: return "it has a variable argument list";
        case SITE_FATE::CANNOT_INLINE:
            return symbol_has_pragma(callee->symbol, PRAG_FUNC_CANNOT_INLINE)
                       ? "it is marked never to be"
                       : "something in its body cannot be copied";
        case SITE_FATE::NEVER_RETURNS: return "it never returns";
        case SITE_FATE::NO_BODY: return "nothing is left of its body";
        case SITE_FATE::ARGUMENTS: return "the arguments do not match its parameters";
        case SITE_FATE::FORBIDDEN: return "inlining is switched off";
        case SITE_FATE::LEVEL: return "it is not declared inline, and the optimization level is below 2";
        case SITE_FATE::TOO_LARGE: return why_too_large(site);
        case SITE_FATE::SYNONYM: return site.caller->name + "() is another name for it";
    }
    return "";
}

} // namespace

std::string sentence_about(const CALLSITE& site) {
    std::string text;
    if (site.psn != nullptr && site.psn->file != nullptr)
        text = std::string(site.psn->file) + ", line " + std::to_string(site.psn->line) + ": ";
    text += site.callee != nullptr ? "the call of " + site.callee->name + "()" : "a call through a pointer";
    text += " in " + site.caller->name + "() is ";
    if (site.fate == SITE_FATE::INLINED && !is_left_by_integration(site)) return text + "inlined.";
    return text + "not inlined: " + reason(site) + ".";
}

void report_call_sites(const std::vector<FUNINFO*>& functions) {
    if (finfo == nullptr || write_opt_info < 1) return;
    for (const FUNINFO* function : functions)
        for (const CALLSITE* site : function->callsites)
            std::fprintf(finfo, "%s\n", sentence_about(*site).c_str());
}
