// What constant arguments are worth to a callee.

#ifndef OPT5_FOLD_ESTIMATE_H
#define OPT5_FOLD_ESTIMATE_H

struct CALLSITE;

// Sets the site's fold_ratio: the nodes of the callee over those that are left once the constant arguments
// take the place of the parameters, tried on a copy of the body. 1 where there is nothing to fold. Linear in
// the callee.
void estimate_folding(CALLSITE& site);

#endif
