#ifndef _FLOAT_H
#define _FLOAT_H

/* Every floating type is an IEEE single. */
#define FLT_RADIX       2
#define FLT_ROUNDS      1
#define FLT_EVAL_METHOD 0
#define FLT_MANT_DIG   24
#define FLT_DIG        6
#define FLT_MIN_EXP    (-125)
#define FLT_MIN_10_EXP (-37)
#define FLT_MAX_EXP    128
#define FLT_MAX_10_EXP 38
#define FLT_MAX        3.40282346638528859812e+38F
#define FLT_MIN        1.17549435082228750797e-38F
#define FLT_EPSILON    1.1920928955078125e-07F
#define DBL_MANT_DIG   24
#define DBL_DIG        6
#define DBL_MIN_EXP    (-125)
#define DBL_MIN_10_EXP (-37)
#define DBL_MAX_EXP    128
#define DBL_MAX_10_EXP 38
#define DBL_MAX        3.40282346638528859812e+38
#define DBL_MIN        1.17549435082228750797e-38
#define DBL_EPSILON    1.1920928955078125e-07
#define LDBL_MANT_DIG   24
#define LDBL_DIG        6
#define LDBL_MIN_EXP    (-125)
#define LDBL_MIN_10_EXP (-37)
#define LDBL_MAX_EXP    128
#define LDBL_MAX_10_EXP 38
#define LDBL_MAX        3.40282346638528859812e+38L
#define LDBL_MIN        1.17549435082228750797e-38L
#define LDBL_EPSILON    1.1920928955078125e-07L

#endif
