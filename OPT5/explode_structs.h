// Local structures as independent variables.

#ifndef OPT5_EXPLODE_STRUCTS_H
#define OPT5_EXPLODE_STRUCTS_H

class NODE;

// Replaces local structures of the current function by one variable for each member, where no address of the
// structure is taken and it is never read or written as a whole except by assignments between objects.
// Members that are structures themselves count member by member. Arrays, unions, volatile
// members and structures of many members keep a structure as it is. A parameter is replaced where the
// function assigns to one of its members: the copies stand behind the argument prolog. Edges stay as they
// are. Linear in the function.
void explode_auto_struct_vars();

// Whether the statement is one of the copies behind `prolog` that give a member's variable its first value.
bool is_struct_explosion_parm_assignment(NODE* statement, NODE* prolog);

#endif
