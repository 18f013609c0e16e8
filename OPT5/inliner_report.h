// What the information file tells of inlining.

#ifndef OPT5_INLINER_REPORT_H
#define OPT5_INLINER_REPORT_H

#include <string>
#include <vector>

struct CALLSITE;
struct FUNINFO;

// One sentence for a call: "t.c, line 5: the call of f() in g() is inlined." or "... is not inlined: REASON."
std::string sentence_about(const CALLSITE& site);

// The sentences for all calls of these functions, by function and index, to the information file.
void report_call_sites(const std::vector<FUNINFO*>& functions);

#endif
