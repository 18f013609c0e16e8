// Temporaries for structures that calls return.

#ifndef OPT5_CSU_TEMPS_H
#define OPT5_CSU_TEMPS_H

// Lets a call store the structure that it returns into the local variable to which it is copied, where the
// temporary between the two serves nothing else: t = f(x); ...; s = t becomes s = f(x). Both must be private,
// and from the call to the copy nothing may access the variable but, by value, the call's arguments. At level
// 0 only temporaries that the compiler has made count. Leaves blocks and edges alone. Linear.
void subst_csu_returning_temp_for_local_var();

#endif
