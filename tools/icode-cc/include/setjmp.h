#ifndef _SETJMP_H
#define _SETJMP_H

typedef long jmp_buf[4];

int setjmp(jmp_buf place);
_Noreturn void longjmp(jmp_buf place, int value);

#endif
