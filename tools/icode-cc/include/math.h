#ifndef _MATH_H
#define _MATH_H

#define HUGE_VAL (1e30F * 1e30F)
#define HUGE_VALF (1e30F * 1e30F)
#define INFINITY (1e30F * 1e30F)
#define NAN (INFINITY - INFINITY)

/* Every floating type is an IEEE single: the two names of a function are one. */
double acos(double x);
float acosf(float x);
double asin(double x);
float asinf(float x);
double atan(double x);
float atanf(float x);
double ceil(double x);
float ceilf(float x);
double cos(double x);
float cosf(float x);
double cosh(double x);
float coshf(float x);
double exp(double x);
float expf(float x);
double fabs(double x);
float fabsf(float x);
double floor(double x);
float floorf(float x);
double log(double x);
float logf(float x);
double log10(double x);
float log10f(float x);
double log2(double x);
float log2f(float x);
double round(double x);
float roundf(float x);
double sin(double x);
float sinf(float x);
double sinh(double x);
float sinhf(float x);
double sqrt(double x);
float sqrtf(float x);
double tan(double x);
float tanf(float x);
double tanh(double x);
float tanhf(float x);
double trunc(double x);
float truncf(float x);
double atan2(double x, double y);
float atan2f(float x, float y);
double fmod(double x, double y);
float fmodf(float x, float y);
double pow(double x, double y);
float powf(float x, float y);
double fmin(double x, double y);
float fminf(float x, float y);
double fmax(double x, double y);
float fmaxf(float x, float y);
double ldexp(double x, int n);
float ldexpf(float x, int n);
double frexp(double x, int* exponent);
float frexpf(float x, int* exponent);
double modf(double x, double* whole);
float modff(float x, float* whole);

#endif
