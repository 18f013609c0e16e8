#include "random_graph.h"

#include <algorithm>

#include "OPT5/opt_expr.h"

using namespace op;

void RANDOM_GRAPH_TEST::begin_another(unsigned count) {
    if (currfunc != nullptr) erase_current();
    begin(function(("fn" + std::to_string(++functions_)).c_str()));
    locals = {x, y};
    for (unsigned i = 0; i < count; i++) locals.push_back(local(("v" + std::to_string(i)).c_str(), int_type));
    p = local("p", tp->mk_ptr(int_type));
    q = local("q", tp->mk_ptr(int_type));
    addressed = {g, h, local("a", int_type)};
}

RANDOM_GRAPH_TEST::VALUES RANDOM_GRAPH_TEST::random_start(std::mt19937& random) {
    VALUES start;
    for (SYMTAB* symbol : locals)
        start[symbol] = static_cast<std::int16_t>(random() % 3 == 0 ? random() : random() % 3);
    // Not to the local, whose address the function may never take.
    for (SYMTAB* pointer : {p, q}) start[pointer] = static_cast<std::int16_t>(random() % 2);
    return start;
}

NODE* RANDOM_GRAPH_TEST::some_place(std::mt19937& random) {
    switch (random() % 4) {
        case 0: return name(addressed[random() % addressed.size()]);
        case 1: return tree(UMULT, int_type, name(random() % 2 == 0 ? p : q));
        default: return name(some_local(random));
    }
}

void RANDOM_GRAPH_TEST::build_random(std::mt19937& random, unsigned count, bool returns,
                                     const std::function<void(unsigned)>& fill) {
    const auto some_label = [&] { return 1 + random() % count; };
    for (unsigned i = 1; i <= count; i++) {
        label(i);
        fill(i);
        switch (random() % 6) {
            case 0: stmt(branch(some_label())); break;
            case 1:
            case 2: stmt(cbranch(name(y), some_label())); break;
            case 3:
                stmt(switch_on(name(y), comma(case_of(1, some_label()), default_to(some_label()))));
                break;
            case 4:
                if (returns) stmt(ret(name(x)));
                break;
            default: break;
        }
    }
    if (!returns) stmt(branch(some_label()));
    end_uncleaned();
}

NODE* RANDOM_GRAPH_TEST::random_pure(std::mt19937& random, int depth) {
    const auto value = [&] { return random_pure(random, depth - 1); };
    switch (depth > 0 ? random() % 6 : random() % 2) {
        case 0: return icon(static_cast<int>(random() % 9));
        case 1: return some_place(random);
        case 2: return tree(MULT, int_type, value(), value());
        case 3: return tree(QUEST, int_type, value(), tree(COLON, int_type, value(), value()));
        default: return tree(PLUS, int_type, value(), value());
    }
}

NODE* RANDOM_GRAPH_TEST::random_value(std::mt19937& random, int depth) {
    const auto value = [&] { return random_value(random, depth - 1); };
    const auto pure = [&] { return random_pure(random, depth - 1); };
    const auto other = [&](int op, NODE* left, NODE* right) { return tree(op, int_type, left, right); };
    switch (depth > 0 ? random() % 9 : 0) {
        case 0: return random_pure(random, depth);
        case 1: return asg(some_local(random), value());
        case 2: return other(PLUSASG, name(some_local(random)), pure());
        case 3: return other(PLUSPLUS, name(some_local(random)), icon(1));
        case 4: return other(ANDAND, value(), value());
        case 5: return other(QUEST, value(), other(COLON, value(), value()));
        case 6: return other(COMMAOP, tree(ASG, int_type, some_place(random), value()), value());
        case 7: return other(MULT, value(), icon(static_cast<int>(random() % 5)));
        default: return other(PLUS, value(), icon(static_cast<int>(random() % 5)));
    }
}

void RANDOM_GRAPH_TEST::random_statement(std::mt19937& random) {
    const unsigned kind = random() % 10;
    const auto value = [&] { return random_value(random, static_cast<int>(1 + random() % 3)); };
    if (kind == 0) {
        stmt(asg(random() % 2 == 0 ? p : q, address(addressed[random() % addressed.size()])));
    } else if (kind < 3) {
        stmt(tree(ASG, int_type, some_place(random), value()));
    } else if (kind < 9) {
        stmt(asg(some_local(random), value()));
    }
}

// --- Running.

std::string RANDOM_GRAPH_TEST::run(VALUES values, int blocks) {
    values_ = std::move(values);
    seen_.clear();
    const BBLK* bb = currfuninfo->bb_list;
    while (blocks-- > 0) {
        seen_ += " B" + std::to_string(bb->dfn);
        const BBLK* next = nullptr;
        for (const LIST* cell = bb->statements; cell != nullptr; cell = cell->next) {
            NODE* node = cell->first;
            switch (node->op) {
                case URETURN: return seen_;
                case RETURN: return seen_ + " returns " + std::to_string(evaluate(node->right));
                case BRANCH: next = node->left->label->bb; break;
                case IF:
                    next = (evaluate(node->left) != 0 ? node->right->left : node->right->right)->label->bb;
                    break;
                case SWITCH: {
                    const bool is_case = evaluate(node->left) == node->right->left->left->icon_svalue();
                    next = (is_case ? node->right->left->right : node->right->right->left)->label->bb;
                    break;
                }
                default: evaluate(node); break;
            }
        }
        bb = next;
    }
    return seen_ + " goes on";
}

void RANDOM_GRAPH_TEST::store(const SYMTAB* symbol, std::int16_t value) {
    const std::int16_t before = values_[symbol];
    values_[symbol] = value;
    if (symbol->level == 0 && value != before)
        seen_ += std::string(" ") + symbol->name + "=" + std::to_string(value);
}

const SYMTAB* RANDOM_GRAPH_TEST::symbol_of(NODE* place) {
    return place->op == NAME ? place->symbol()
                             : addressed.at(static_cast<std::size_t>(evaluate(place->left)));
}

std::int16_t RANDOM_GRAPH_TEST::apply(int op, std::int16_t a, std::int16_t b) {
    const auto wrapped = [](int value) { return static_cast<std::int16_t>(value); };
    const auto ua = static_cast<std::uint16_t>(a), ub = static_cast<std::uint16_t>(b);
    switch (op) {
        case PLUS: return wrapped(a + b);
        case MINUS: return wrapped(a - b);
        case MULT: return wrapped(a * b);
        case ANDB: return wrapped(a & b);
        case ORB: return wrapped(a | b);
        case XORB: return wrapped(a ^ b);
        case SLL: return b < 0 || b > 15 ? wrapped(0) : wrapped(ua << b);
        case SRL: return b < 0 || b > 15 ? wrapped(0) : wrapped(a >> b);
        case EQ: return wrapped(a == b);
        case NEQ: return wrapped(a != b);
        case LT: return wrapped(a < b);
        case LE: return wrapped(a <= b);
        case GT: return wrapped(a > b);
        case GE: return wrapped(a >= b);
        case ULT: return wrapped(ua < ub);
        case ULE: return wrapped(ua <= ub);
        case UGT: return wrapped(ua > ub);
        case UGE: return wrapped(ua >= ub);
        default: ADD_FAILURE() << "evaluating " << opname(op); return 0;
    }
}

std::int16_t RANDOM_GRAPH_TEST::evaluate(NODE* node) {
    switch (node->op) {
        case ICON: return static_cast<std::int16_t>(node->icon_svalue());
        case NAME:
        case UMULT: return values_[symbol_of(node)];
        case UAND:
            return static_cast<std::int16_t>(
                std::find(addressed.begin(), addressed.end(), node->left->symbol()) - addressed.begin());
        case UMINUS: return apply(MINUS, 0, evaluate(node->left));
        case NOTB: return static_cast<std::int16_t>(~evaluate(node->left));
        case EXCLAIM: return static_cast<std::int16_t>(evaluate(node->left) == 0);
        case SCONV: return evaluate(node->left);
        case ANDAND:
            return static_cast<std::int16_t>(evaluate(node->left) != 0 && evaluate(node->right) != 0);
        case OROR: return static_cast<std::int16_t>(evaluate(node->left) != 0 || evaluate(node->right) != 0);
        case QUEST: return evaluate(evaluate(node->left) != 0 ? node->right->left : node->right->right);
        case COMMAOP: evaluate(node->left); return evaluate(node->right);
        default: break;
    }
    if (!opcode_is_ASG(node->op)) {
        const std::int16_t left = evaluate(node->left);
        return apply(node->op, left, evaluate(node->right));
    }
    const std::int16_t operand = evaluate(node->right);
    const SYMTAB* target = symbol_of(node->left);
    const std::int16_t old = values_[target];
    switch (node->op) {
        case ASG: store(target, operand); return operand;
        case PLUSPLUS: store(target, apply(PLUS, old, operand)); return old;
        case MINMIN: store(target, apply(MINUS, old, operand)); return old;
        default: store(target, apply(op_of_opASG[node->op], old, operand)); return values_[target];
    }
}
