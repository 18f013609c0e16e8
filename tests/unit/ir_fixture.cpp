#include "ir_fixture.h"

#include "OPT5/erase.h"
#include "OPT5/pragma.h"

void IR_TEST::erase_current() {
    erase_all();
    currfunc = nullptr;
    currfuninfo = nullptr;
}

void IR_TEST::pragma(SYMTAB* owner, int kind, const char* argument) {
    auto* made = new PRAGMA;
    made->kind = static_cast<std::uint8_t>(kind);
    if (argument != nullptr) made->args.emplace_back(argument);
    opt_client.cl_pragma(owner, made);
}
