/* Exceptions for C, as the programs here write them. The front end knows none: tables.py turns the marks
   below into exception tables once the program has become text. */

void* __cxa_allocate_exception(unsigned units);
void __cxa_throw(void* object, const void* type, void (*destructor)(void*));
void* __cxa_begin_catch(void* object);
void __cxa_end_catch(void);
void __cxa_rethrow(void);

/* Statements that declare the table of the function they stand in. Regions 0 and 1 lead out of the function.
 */
void __region(int id);                 /* calls from here on, down the text, are of that region */
void __cleanup(int id, int link, ...); /* the third argument is the tree */
void __catches(int id, int link, ...); /* pairs of a type's name (0: everything) and a value */
void __cleanup_end(int id, int link);
void __terminates(int id);
int __eh_switch(void);

/* The type's name is that of the symbol. */
const int an_int = 1, a_long = 2, a_string = 3;

#define THROW(type, symbol, value, destructor)                                                               \
    do {                                                                                                     \
        type* object_ = __cxa_allocate_exception(sizeof(type));                                              \
        *object_ = (value);                                                                                  \
        __cxa_throw(object_, &symbol, destructor);                                                           \
    } while (0)
#define THROW_INT(value) THROW(int, an_int, value, 0)
#define THROW_LONG(value) THROW(long, a_long, value, 0)
#define CAUGHT(type) (*(type*)__cxa_begin_catch(0))

int printf(const char*, ...);
