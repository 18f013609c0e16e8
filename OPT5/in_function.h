// The function in work, for a while.

#ifndef OPT5_IN_FUNCTION_H
#define OPT5_IN_FUNCTION_H

#include "fileopt.h"
#include "files.h"

// Makes a function the current one for as long as the object lives.
class IN_FUNCTION {
  public:
    explicit IN_FUNCTION(FUNINFO* function) : saved_function_(currfunc), saved_record_(currfuninfo) {
        currfunc = function->symbol;
        currfuninfo = function;
    }
    ~IN_FUNCTION() {
        currfunc = saved_function_;
        currfuninfo = saved_record_;
    }
    IN_FUNCTION(const IN_FUNCTION&) = delete;
    IN_FUNCTION& operator=(const IN_FUNCTION&) = delete;

  private:
    SYMTAB* saved_function_;
    FUNINFO* saved_record_;
};

#endif
