/* May be included several times, with and without NDEBUG. */
#undef assert
#ifdef NDEBUG
#define assert(condition) ((void)0)
#else
void __assert_fail(const char* condition, const char* file, unsigned line);
#define assert(condition) ((condition) ? (void)0 : __assert_fail(#condition, __FILE__, __LINE__))
#endif
#ifndef static_assert
#define static_assert _Static_assert
#endif
