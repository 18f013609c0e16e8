#ifndef _STDIO_H
#define _STDIO_H

#include <stdarg.h>
#include <stddef.h>

#define EOF (-1)

typedef struct _FILE FILE;

/* The streams have no objects: their addresses tell them apart. */
#define stdin ((FILE*)1)
#define stdout ((FILE*)2)
#define stderr ((FILE*)3)

int printf(const char* restrict format, ...);
int fprintf(FILE* restrict stream, const char* restrict format, ...);
int sprintf(char* restrict to, const char* restrict format, ...);
int snprintf(char* restrict to, size_t n, const char* restrict format, ...);
int vprintf(const char* restrict format, va_list list);
int vfprintf(FILE* restrict stream, const char* restrict format, va_list list);
int vsprintf(char* restrict to, const char* restrict format, va_list list);
int vsnprintf(char* restrict to, size_t n, const char* restrict format, va_list list);
int puts(const char* s);
int fputs(const char* restrict s, FILE* restrict stream);
int putchar(int c);
int fputc(int c, FILE* stream);
int putc(int c, FILE* stream);
int getchar(void);
int fflush(FILE* stream);

#endif
