// Which variables the code generator is to keep in registers.

#ifndef OPT5_ALLOCATE_REGS_H
#define OPT5_ALLOCATE_REGS_H

// Sets the registers that variables of the current function may count on.
void init_reg_defs();

// Gives locals and temporaries of the current function that never need memory the storage class of register
// variables: all that live inside one block, and of the others those whose accesses weigh most for the time
// that they hold a register, as long as there are registers everywhere in their lives. Parameters keep their
// class, which tells where they arrive. Nothing at level 0, and in a function whose flow is not known.
//
// Needs right edges; leaves trees, blocks and edges alone, renumbers DFNs. Near linear.
void allocate_regs();

#endif
