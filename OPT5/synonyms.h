// Functions that do nothing but call another one: one body can serve both names.

#ifndef OPT5_SYNONYMS_H
#define OPT5_SYNONYMS_H

struct FUNINFO;

// Tests the function that is being read, while its body is still a list of statements. One that passes its
// parameters on as they are, and returns what it gets, becomes a synonym of the function it calls: it gets a
// pragma that names that function. Its body stays as it is. Linear in the parameters.
void check_for_synonym_function_in_pass_1();

bool is_synonym_function(const FUNINFO* function);

#endif
