#ifndef _INTRINSICS_H
#define _INTRINSICS_H

/* Operations of the target that C has no operator for. A program that defines one of these names itself gets
   its own function. None has an address. */

/* The sum, difference or shifted value, or the end of the type's range that lies nearest to it. A shift takes
   the low five bits of its count. */
int _sadd(int a, int b);
int _ssub(int a, int b);
int _sshl(int a, unsigned count);

/* The same in two units. */
long _sadd2(long a, long b);
long _ssub2(long a, long b);
long _sshl2(long a, unsigned count);

/* The whole product of two units. */
long _mpy(int a, int b);
unsigned long _mpyu(unsigned a, unsigned b);
long _mpysu(int a, unsigned b);
long _mpyus(unsigned a, int b);

/* The whole product of one unit by two: of `a`, and of the high unit of `a`. */
long long _mpyli(int a, long b);
long long _mpyhi(long a, long b);

/* The halves of four units. */
unsigned long _lo(long long a);
unsigned long _hi(long long a);

/* The program promises that it never gets here. */
void _never_executed(void);

#endif
