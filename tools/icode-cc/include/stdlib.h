#ifndef _STDLIB_H
#define _STDLIB_H

#include <stddef.h>

#define EXIT_SUCCESS 0
#define EXIT_FAILURE 1
#define RAND_MAX 32767

void* malloc(size_t n);
void* calloc(size_t count, size_t n);
void* realloc(void* block, size_t n);
void free(void* block);
_Noreturn void abort(void);
_Noreturn void exit(int status);
int atexit(void (*function)(void));
int rand(void);
void srand(unsigned seed);
int abs(int value);
long labs(long value);
long long llabs(long long value);
int atoi(const char* s);
long atol(const char* s);
double atof(const char* s);
long strtol(const char* restrict s, char** restrict end, int base);
unsigned long strtoul(const char* restrict s, char** restrict end, int base);
void qsort(void* base, size_t count, size_t size, int (*compare)(const void*, const void*));
void* bsearch(const void* key, const void* base, size_t count, size_t size,
              int (*compare)(const void*, const void*));

#endif
