// Lowering of one function; internal to lower*.cpp.
//
// Trees can be as deep as a file makes them, so nothing here recurses over them. A tree is lowered by two
// stacks: `tasks_`, what is still to be done, and `items_`, the values and places that finished subtrees have
// left. To lower a node is to push a task that consumes its operands' items, and then tasks for the operands,
// the first on top.
//
// An item is lazy where that costs nothing: it can name a local in a register, a constant, the address of a
// frame object, or a register plus a constant. Such an item must still give the value of the time it was
// made. Locals in registers are the only lazy part that later code can change, so items that mention one are
// linked by local (`pending_`), and a store to a local first moves those items' values to temporaries. Where
// code becomes conditional, all of them are moved, because a move inside one arm would be missing in the
// other.

#ifndef ICODE_RUN_LOWERING_H
#define ICODE_RUN_LOWERING_H

#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

#include "OPT5/opcodes.h"
#include "tools/icode-run/code.h"
#include "tools/icode-run/image.h"
#include "tools/icode-run/lower.h"

namespace run {

class lowering {
  public:
    lowering(image& image, const lower_options& options, const model::function& source,
             program_code& program);

    void run(function_code& result);

  private:
    using tree = model::tree;

    static constexpr std::uint32_t NONE = 0xffffffffu;

    enum class item_kind : std::uint8_t {
        NOTHING,  // no value (void)
        REGISTER, // a local or temporary
        CONSTANT, // `value`
        FRAME,    // the frame's address plus `value`
        SUM       // a register plus `value`, as an address
    };

    // A value, or the place of one: then the kinds tell the place's address, but for a local in a register,
    // which is a place of kind REGISTER with `local` set.
    struct item {
        item_kind kind = item_kind::NOTHING;
        bool is_place = false;
        bool local = false;       // place: a local in a register
        bool is_volatile = false; // place
        bool checked = false;     // place: the access must be checked, wherever it is
        bool is_field = false;    // place: a bit-field
        bool plain = false;       // value: stands for a register or constant, no operator made it
        bool truth = false;       // value: 0 or 1 by the operator that made it
        bool borrowed = false;    // the temporary belongs to another item
        scalar rep;               // of the value, or of what the place holds
        std::uint32_t reg = NONE;
        std::int64_t value = 0;
        std::int64_t begin = 0, end = 0; // place in a named object: the object's bounds, as `value` counts
        bit_field field;
        std::uint32_t made_at = NONE;     // instruction that put the value into its temporary
        std::uint32_t previous = NONE;    // next item down that mentions the same local
        std::uint32_t local_index = NONE; // place: of the local
    };

    enum class act : std::uint8_t {
        VALUE,     // lower the tree to a value item; a structure or array gives its address
        EFFECT,    // lower it for its effects alone
        PLACE,     // lower it to a place item
        CONDITION, // lower it to a jump to label `n` when its truth equals `flag`
        // What remains of a node once its operands are there:
        LOAD_PLACE,
        ADDRESS_OF,
        MEMBER,   // adds tree->right's offset to the place or pointer
        INDIRECT, // turns a pointer into a place
        UNARY,
        BINARY,
        BOOLEAN_OF, // EXCLAIM
        ASSIGN,     // `flag`: the value is wanted
        COPY_AGGREGATE,
        COMPOUND,
        STEP_BY, // PLUSPLUS, MINMIN
        CALL_WITH,
        INTRINSIC_WITH,
        MEMCPY_WITH,
        PROMISE,
        TEST,         // conditional jump on the value
        TEST_COMPARE, // on a comparison
        TRUTH,        // the value as 0 or 1 in register `m`
        DECIDED,      // where the first operand of a boolean decides: `flag` in register `m`
        ARM,          // a value arm of QUEST ends: into register `m`
        JUMP_TO,
        LABEL_HERE,
        PUSH_RESULT, // register `m` as the tree's value
        DROP
    };

    struct task {
        act what;
        bool flag = false;
        const tree* t = nullptr;
        std::uint32_t n = 0;
        std::uint32_t m = 0;
    };

    struct local_info {
        bool in_register = false;
        bool address_taken = false;
        std::uint32_t reg = NONE;
        std::uint32_t object = NONE; // index of the frame object
        std::uint32_t offset = 0;
        std::uint32_t scope = 0;
        std::uint32_t arrival = NONE; // register in which a parameter arrives
        const model::symbol* symbol = nullptr;
    };

    struct scope_info {
        std::uint32_t parent = NONE;
        std::uint32_t depth = 0;
        std::vector<std::uint32_t> locals;
    };

    // --- lower.cpp: bodies and statements.
    void survey();
    void survey_tree(const tree* root, std::vector<const tree*>& stack);
    void place_locals();
    void lower_body();
    void lower_statement(const tree* statement);
    void lower_prolog(const tree* statement);
    void receive(const tree* assignment, std::vector<bool>& received);
    void lower_switch(const tree* statement);
    void lower_return(const tree* statement);
    void resolve_labels();
    void scope_change(std::uint32_t from, std::uint32_t to);
    void jump_to_user_label(std::uint32_t number);
    std::uint32_t user_label(const tree* reference);
    std::uint32_t scope_of_label(std::uint32_t number) const;

    // --- lower_regions.cpp: exceptions.
    void lower_regions();
    void push_eh_switch(const tree* t);

    // --- lower_expr.cpp: expressions.
    void lower_tree(act what, const tree* t, std::uint32_t label = 0, bool flag = false);
    void perform(const task& k);
    void value(const tree* t);
    void effect(const tree* t);
    void place(const tree* t);
    void condition(const tree* t, std::uint32_t label, bool flag);
    void short_circuit(const tree* t, std::uint32_t label, bool flag);
    void push_arguments(const tree* list, std::vector<const tree*>& flat);
    void push_call(const tree* t, bool intrinsic_call);
    static bool is_compound(int op);
    static bool is_comparison(int op);
    static bool gives_truth(const tree* t);
    void name_value(const tree* t);
    void name_place(const tree* t);

    // --- lower_ops.cpp: what operators become once their operands are items.
    void do_load(const tree* t);
    void do_address(const tree* t);
    void do_member(const tree* t);
    void do_indirect(const tree* t);
    void do_unary(const tree* t);
    void do_binary(const tree* t);
    void do_boolean(const tree* t);
    void do_assign(const tree* t, bool wanted);
    void do_copy(const tree* t, bool wanted);
    void do_compound(const tree* t, bool wanted);
    void do_step(const tree* t, bool wanted);
    void do_call(const tree* t, std::uint32_t arguments);
    void do_intrinsic(const tree* t, std::uint32_t arguments);
    void finish_intrinsic(const tree* t, const intrinsic& builtin, std::vector<item>& values,
                          const std::vector<const tree*>& trees);
    void do_memcpy(const tree* t);
    void do_promise();
    void do_test(std::uint32_t label, bool flag);
    void do_test_compare(const tree* t, std::uint32_t label, bool flag);
    scalar rep_of_place(const item& place) const;
    item read_place(item& from);
    item load(item& from);
    void store(item& to, item& from);
    void write_place(item& to, item& from, const scalar& as, bool wanted);
    void note_access(const item& place, std::uint32_t value, std::uint32_t base, std::uint32_t offset,
                     bool write);
    scalar promoted(const scalar& rep, TYPE* type, const item* place) const;
    scalar usual(const scalar& a, const scalar& b) const;
    item arithmetic(int op, const scalar& rep, item& a, item& b);
    item shift(int op, const scalar& rep, item& a, item& b);
    item scaled(const tree* t, item a);
    item pointer_sum(int op, const scalar& rep, item& a, item& b);
    item converted(item from, const scalar& to, bool counted);
    void set_up_arguments(std::vector<item>& args, call_site& site, const std::vector<const tree*>& trees);
    void note_leaves(std::uint32_t base, TYPE* type, bool outer_volatile, bool write);
    // True for a floating comparison, whose set of outcomes is then in `set`; else `how` is filled.
    bool compare_operands(const tree* t, item& a, item& b, comparison& how, unsigned& set);
    // Both operands of a comparison, ready for its instruction, and released.
    struct compared {
        bool floating;
        bool constant; // `right` is the number itself, else a register
        comparison how;
        unsigned set; // floating: the outcomes for which it holds
        std::uint32_t left, right;
    };
    compared compare_in_registers(const tree* t, item& a, item& b);

    // --- lower_emit.cpp: code, registers, items.
    std::uint32_t emit(opcode op, std::uint32_t a = 0, std::uint32_t b = 0, std::uint32_t c = 0,
                       std::uint16_t x = 0);
    void count(op_class c, std::uint64_t n = 1);
    void close_segment();
    std::uint32_t new_label();
    void label_here(std::uint32_t label);
    std::uint32_t new_temp();
    void free_temp(std::uint32_t reg);
    bool is_temp(std::uint32_t reg) const { return reg != NONE && reg >= first_temp_; }
    void push(item i);
    item pop();
    void release(const item& i);
    void settle(std::uint32_t local_reg); // before a store to that local
    void settle_all();
    void settle_item(item& i);
    item temp_item(std::uint32_t reg, const scalar& rep);
    static item constant_item(std::uint64_t bits, const scalar& rep);
    std::uint32_t in_register(item& i); // makes the item a REGISTER and gives its number
    std::uint32_t pointer_register(item& i, std::uint32_t& offset);
    void set_local(std::uint32_t local, item& from);
    void read_check(std::uint32_t local);
    [[noreturn]] void no_meaning(const tree* t) const;
    [[noreturn]] void bad(const tree* t, const std::string& what) const;
    std::uint32_t text(const std::string& words);
    const scalar& pointer_rep() const { return image_.model.pointer; }

    image& image_;
    const lower_options options_;
    const model::function& source_;
    program_code& program_;
    function_code* out_ = nullptr;

    std::unordered_map<const model::symbol*, std::uint32_t> local_of_;
    std::vector<local_info> locals_;
    std::vector<std::uint32_t> local_of_register_;
    std::vector<scope_info> scopes_;
    std::uint32_t scope_ = 0;                                   // of the statement at hand
    std::unordered_map<std::uint32_t, std::uint32_t> labels_;   // label of the file to our own
    std::unordered_map<std::uint32_t, std::uint32_t> scope_of_; // label of the file to its scope
    std::vector<std::uint32_t> label_pc_;

    std::vector<task> tasks_;
    std::vector<item> items_;
    std::vector<std::uint32_t> pending_;       // per local register: topmost item that mentions it
    std::vector<std::uint32_t> pending_items_; // indexes of all such items, ascending
    std::uint32_t first_temp_ = 0;
    std::uint32_t next_temp_ = 0;
    std::vector<std::uint32_t> free_temps_;
    std::uint32_t barrier_ = 0; // no instruction before this one may be changed any more

    std::uint32_t segment_pc_ = NONE; // the SEGMENT instruction of the run of code at hand
    class_counts segment_counts_{};
    unsigned silent_ = 0; // inside promises, which cost nothing

    std::uint32_t frame_end_ = 0;     // objects so far
    std::uint32_t results_begin_ = 0; // room for structure results begins here,
    std::uint32_t results_used_ = 0;  // is used so far in this statement,
    std::uint32_t results_most_ = 0;  // and at most in any
    std::unordered_map<std::string, std::uint32_t> texts_;
    scalar result_;
    TYPE* result_type_ = nullptr;
};

} // namespace run

#endif
