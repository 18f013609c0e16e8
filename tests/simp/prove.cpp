#include "tests/simp/prove.h"

#include <algorithm>
#include <bitset>
#include <cmath>
#include <cstdio>
#include <unordered_map>

#include "OPT5/bbutils.h"
#include "OPT5/copy.h"
#include "OPT5/dump.h"
#include "OPT5/erase.h"
#include "OPT5/fpsmath.h"
#include "OPT5/node.h"
#include "OPT5/opcodes.h"
#include "OPT5/opt_expr.h"
#include "OPT5/symbol.h"
#include "OPT5/tree_check.h"
#include "OPT5/types.h"

using namespace op;

namespace prove {

namespace {

constexpr int EXHAUSTIVE_SIZE = 30; // nodes of a tree that is tried on all values

std::string line(const char* label, const std::string& text) {
    std::string padded(label);
    padded.resize(12, ' ');
    return padded + text + "\n";
}

// The mask that a tree's seed asks for.
std::uint64_t parameter_of(std::uint64_t seed, unsigned bits) {
    RANDOM random(seed ^ 0x6d61736b);
    return edgy_number(random, bits);
}

bool same_value(const REP& rep, std::uint64_t a, std::uint64_t b) {
    if (rep.is_float() && std::isnan(single_of(a)) && std::isnan(single_of(b))) return true;
    return a == b;
}

bool is_true(const REP& rep, std::uint64_t image) {
    return rep.is_float() ? single_of(image) != 0.0f : image != 0;
}

float edgy_single(RANDOM& random) {
    static constexpr std::uint32_t images[] = {0x00000000, 0x80000000, 0x3f800000, 0xbf800000, 0x3f000000,
                                               0x40000000, 0x40400000, 0x7f800000, 0xff800000, 0x7fc00000,
                                               0x7f7fffff, 0x00800000, 0x00000001, 0x007fffff, 0x47000000,
                                               0x47800000, 0x4f000000, 0x4b800000, 0x4b800001, 0x5f000000};
    if (random.percent(60)) return single_of(random.one_of(images));
    if (random.percent(60)) return static_cast<float>(static_cast<int>(random.below(2000)) - 1000) / 8;
    return single_of(random.next() & 0xffffffffu);
}

} // namespace

// --- Trees.

int size_of(NODE* tree) {
    int size = 0;
    walk_tree(tree, [&size](NODE*) { size++; });
    return size;
}

bool same_tree(NODE* a, NODE* b) {
    std::vector<std::pair<NODE*, NODE*>> pending{{a, b}};
    while (!pending.empty()) {
        auto [x, y] = pending.back();
        pending.pop_back();
        if (x == nullptr || y == nullptr) {
            if (x != y) return false;
            continue;
        }
        if (x->op != y->op || x->type != y->type) return false;
        switch (x->op) {
            case NAME:
                if (x->symbol() != y->symbol()) return false;
                break;
            case ICON:
            case LABEL:
                if (x->u.lval != y->u.lval) return false;
                break;
            case FCON:
                if (get_ieee_flt_fmt(x->fval()) != get_ieee_flt_fmt(y->fval())) return false;
                break;
            case FIELD:
                if (x->mdata != y->mdata) return false;
                break;
            case ICALL:
            case UICALL:
            case MCALL:
                if (std::string(x->intrinsic()) != y->intrinsic()) return false;
                break;
            default: break;
        }
        pending.emplace_back(x->left, y->left);
        pending.emplace_back(x->right, y->right);
    }
    return true;
}

namespace {

// What a subtree touches, by object; `tail` are writes that no sequence point separates from its value. Calls
// and volatile accesses write one more thing, the world outside, and calls read and write all globals.
struct TOUCHED {
    using SET = std::bitset<64>;
    SET reads, writes, tail;

    void operator|=(const TOUCHED& other) {
        reads |= other.reads;
        writes |= other.writes;
        tail |= other.tail;
    }
    bool clashes(const TOUCHED& other) const {
        return (writes & (other.reads | other.writes)).any() || (other.writes & reads).any();
    }
};

class ORDER {
  public:
    explicit ORDER(const LAYOUT& layout) : layout_(layout) {
        for (std::size_t i = 0; i < layout.objects().size(); i++) {
            const LAYOUT::OBJECT& o = layout.objects()[i];
            index_[o.symbol] = i;
            if (o.is_global) globals_.set(i);
        }
    }
    bool matters(NODE* tree) {
        // Operands first: a node stands ahead of its operands in `order`.
        std::vector<NODE*> order;
        walk_tree(tree, [&order](NODE* n) { order.push_back(n); });
        for (std::size_t i = order.size(); i-- > 0 && !found_;) touched_[order[i]] = of(order[i]);
        return found_;
    }

  private:
    static constexpr std::size_t OUTSIDE = 63;

    TOUCHED of(NODE* n) {
        const TOUCHED left = of_operand(n->left), right = of_operand(n->right);
        TOUCHED all = left;
        all |= right;
        switch (n->op) {
            case COMMAOP:
            case ANDAND:
            case OROR:
            case QUEST: all.tail = right.tail; return all;
            case COLON: return all;
            case UAND: // only the place's address is computed
                all.reads &= ~place(n->left);
                return all;
            case NAME:
            case UMULT:
            case STREF:
            case STDOT: access(n, all.reads, all.writes); return all;
            case CALL:
            case UCALL:
                found_ |= left.clashes(right);
                all.reads |= globals_;
                all.writes |= globals_;
                all.writes.set(OUTSIDE);
                all.tail = {};
                return all;
            default: break;
        }
        if (!opcode_is_ASG(n->op)) {
            found_ |= left.clashes(right);
            return all;
        }
        // The target is written behind both sides, and read ahead of that by the compound forms.
        TOUCHED target = left;
        const TOUCHED::SET at = place(n->left);
        if (n->op == ASG || n->op == STASG) target.reads &= ~at; // its address alone
        found_ |= target.clashes(right) || (at & (left.tail | right.tail)).any();
        if (n->op != ASG && n->op != STASG) found_ |= (at & right.writes).any();
        all.writes |= at;
        all.tail |= at;
        return all;
    }

    static bool may_be_pointed_to(const SYMTAB* symbol) {
        return symbol->type->is_array() || symbol->type->is_csu() || std::string(symbol->name) == "target";
    }
    TOUCHED of_operand(NODE* n) { return n != nullptr ? touched_[n] : TOUCHED{}; }
    TOUCHED::SET place(NODE* n) {
        while (n->op == STDOT) n = n->left;
        TOUCHED::SET set;
        if (n->op != NAME) { // any object of the type, or an array of it
            for (const LAYOUT::OBJECT& o : layout_.objects()) {
                TYPE* type = o.symbol->type->is_array() ? o.symbol->type->elem_type() : o.symbol->type;
                const bool fits = n->op == STREF ? type->is_csu() : type->true_type() == n->type->true_type();
                if (fits && may_be_pointed_to(o.symbol)) set.set(index_[o.symbol]);
            }
            return set;
        }
        if (n->symbol()->type->is_volatile())
            set.set(OUTSIDE);
        else if (auto found = index_.find(n->symbol()); found != index_.end())
            set.set(found->second);
        return set;
    }
    void access(NODE* n, TOUCHED::SET& reads, TOUCHED::SET& writes) {
        const TOUCHED::SET at = place(n);
        reads |= at;
        if (at.test(OUTSIDE)) writes.set(OUTSIDE);
    }

    const LAYOUT& layout_;
    std::unordered_map<const SYMTAB*, std::size_t> index_;
    std::unordered_map<NODE*, TOUCHED> touched_;
    TOUCHED::SET globals_;
    bool found_ = false;
};

} // namespace

bool depends_on_order(NODE* tree, const LAYOUT& layout) {
    const bool writes =
        any_node(tree, [](NODE* n) { return side_effects[n->op] != SE_NONE || n->type->is_volatile(); });
    return writes && ORDER(layout).matters(tree);
}

std::string typed_text(NODE* tree) {
    struct PART {
        NODE* node;
        std::string text;
    };
    std::vector<PART> pending{{tree, ""}};
    std::string text;
    while (!pending.empty()) {
        const PART part = pending.back();
        pending.pop_back();
        if (part.node == nullptr) {
            text += part.text;
            continue;
        }
        NODE* n = part.node;
        std::string type = n->type != nullptr ? n->type->printstr() : "?";
        switch (n->op) {
            case NAME: text += n->symbol()->name; continue;
            case ICON: text += "(" + type + ")" + int2text(n->u.lval); continue;
            case FCON: text += n->fcon_value(); continue;
            case FIELD: text += n->mdata->name; continue;
            case LABEL: text += "L" + int2text(n->u.lval); continue;
            default: break;
        }
        text += std::string(name_of(n)) + (n->type != nullptr && n->type->is_void() ? "" : ":" + type);
        if (n->op == ICALL || n->op == MCALL) text += std::string(" ") + n->intrinsic();
        text += "(";
        pending.push_back({nullptr, ")"});
        if (n->right != nullptr) {
            pending.push_back({n->right, ""});
            pending.push_back({nullptr, ", "});
        }
        if (n->left != nullptr) pending.push_back({n->left, ""});
    }
    return text;
}

// --- Assignments.

struct PROVER::USE {
    std::vector<const LAYOUT::OBJECT*> objects; // in order of address
    std::vector<std::uint64_t> constants;
    const LAYOUT::OBJECT* single = nullptr; // the one variable of 16 bits, when there are no others
};

namespace {

void note_objects(NODE* tree, const PALETTE& palette, std::vector<const LAYOUT::OBJECT*>& objects) {
    bool indirect = false, calls = false;
    std::vector<const SYMTAB*> symbols;
    walk_tree(tree, [&](NODE* n) {
        if (n->op == NAME) {
            symbols.push_back(n->symbol());
            indirect |= n->symbol()->type->is_ptr();
        }
        calls |= n->op == CALL || n->op == UCALL;
    });
    if (indirect)
        for (const SYMTAB* s : {palette.array, palette.target, palette.long_array, palette.record})
            symbols.push_back(s);
    for (const LAYOUT::OBJECT& o : palette.layout.objects()) {
        if (o.is_function) continue;
        const bool used = std::find(symbols.begin(), symbols.end(), o.symbol) != symbols.end();
        if (used || (calls && o.is_global)) objects.push_back(&o);
    }
}

} // namespace

// Round 0 is all zeros and round 1 all ones; the others mix edges, numbers near the tree's constants, and
// what two of these give under some operator.
void PROVER::assign(const USE& use, RANDOM& random, int round) {
    start_.units.assign(palette_.layout.units(), 0);
    start_.outside = random.next();
    const auto constant = [&] {
        return use.constants[random.below(static_cast<unsigned>(use.constants.size()))];
    };
    const auto near_constant = [&]() -> std::uint64_t {
        const std::uint64_t a = constant();
        switch (random.below(10)) {
            case 0: return a - 1;
            case 1: return a + 1;
            case 2: return 0 - a;
            case 3: return ~a;
            case 4: return a + constant();
            case 5: return constant() - a;
            case 6: return a != 0 ? constant() / a + random.below(2) : a;
            case 7: return a * constant();
            case 8: return random.percent(50) ? constant() << (a & 15) : constant() >> (a & 15);
            default: return a;
        }
    };
    const std::uint64_t shared = edgy_number(random, 64);
    for (const LAYOUT::OBJECT* o : use.objects) {
        TYPE* type = o->symbol->type;
        const REP rep = rep_of(type);
        const auto number = [&](unsigned bits) {
            if (round == 1) return ~std::uint64_t{0};
            if (random.percent(10)) return shared;
            return use.constants.empty() || random.percent(50) ? edgy_number(random, bits) : near_constant();
        };
        if (rep.kind == REP::POINTER) {
            const SYMTAB* to = o->symbol == palette_.long_pointer     ? palette_.long_array
                               : o->symbol == palette_.record_pointer ? palette_.record
                               : random.percent(80)                   ? palette_.array
                                                                      : palette_.target;
            const unsigned step = to == palette_.array        ? random.below(8)
                                  : to == palette_.long_array ? 2 * random.below(4)
                                                              : 0;
            start_.set_bits(o->address, 0, 16, palette_.layout.find(to)->address + step);
        } else if (round == 0) {
            continue;
        } else if (rep.is_float()) {
            start_.set_bits(o->address, 0, 32, image_of(edgy_single(random)));
        } else if (rep.kind == REP::BOOLEAN) {
            start_.set_bits(o->address, 0, 16, random.below(2));
        } else if (rep.is_scalar()) {
            start_.set_bits(o->address, 0, rep.bits, number(rep.bits));
        } else {
            for (unsigned i = 0; i < o->units; i++) start_.set_bits(o->address + i, 0, 16, number(16));
        }
    }
}

std::string PROVER::show_assignment(const USE& use, const MEMORY& memory) const {
    std::string text;
    for (const LAYOUT::OBJECT* o : use.objects) {
        const REP rep = rep_of(o->symbol->type);
        text += (text.empty() ? "" : ", ") + std::string(o->symbol->name) + " =";
        if (rep.is_scalar()) {
            text += " " + show(extend(memory.bits(o->address, 0, rep.bits), rep.bits, rep.is_signed), rep);
            continue;
        }
        char unit[8];
        for (unsigned i = 0; i < o->units; i++) {
            std::snprintf(unit, sizeof unit, " %04x", static_cast<unsigned>(memory.units[o->address + i]));
            text += unit;
        }
    }
    return text.empty() ? "none" : text;
}

std::string PROVER::show_outcome(const OUTCOME& outcome, const REP& rep) const {
    if (outcome.fault != nullptr) return outcome.fault;
    std::string text = rep.is_scalar() ? show(outcome.value, rep) : "no value";
    for (const EVENT& e : outcome.events) text += "; " + show(e, palette_.layout);
    return text;
}

// --- The check.

namespace {

bool has_effects(NODE* tree) {
    return any_node(tree, [](NODE* n) {
        return (side_effects[n->op] != SE_NONE && n->op != COMMAOP) || n->type->is_volatile();
    });
}

} // namespace

std::string PROVER::check_shape(NODE* tree, const char* which) const {
    std::string fault;
    walk_tree(tree, [&fault](NODE* n) {
        if (!fault.empty()) return;
        if (n->type == nullptr) {
            fault = std::string(name_of(n)) + " without a type";
        } else if (number_of_operands[n->op] != ANY_OPERANDS &&
                   (n->left != nullptr) + (n->right != nullptr) != number_of_operands[n->op]) {
            fault = std::string(name_of(n)) + " with another number of operands";
        }
    });
    if (fault.empty())
        walk_tree(tree, [&fault](NODE* n) {
            if (fault.empty()) fault = node_fault(n);
        });
    return fault.empty() ? fault : std::string(which) + fault + "\n";
}

std::string PROVER::check(const SUBJECT& subject, NODE* tree, std::uint64_t seed, const TRIAL& trial,
                          COUNTS& counts) {
    if (subject.accepts != nullptr && !subject.accepts(tree)) return {};
    if (std::string fault = check_shape(tree, "the generated tree is not well-typed: "); !fault.empty())
        return fault + line("tree", tree_to_text(tree)) + line("typed", typed_text(tree));
    if (depends_on_order(tree, palette_.layout))
        return "the generated tree depends on the order of evaluation\n" + line("tree", tree_to_text(tree)) +
               line("typed", typed_text(tree));
    if (subject.prepare == nullptr) return check_prepared(subject, tree, seed, trial, counts);
    NODE* prepared = subject.prepare(copy_tree(tree, false), 0);
    std::string wrong;
    // What is wrong with the preparation is for its own subject to say.
    if (check_shape(prepared, "").empty()) {
        wrong = check_prepared(subject, prepared, seed, trial, counts);
        if (!wrong.empty()) wrong += line("made of", typed_text(tree));
    }
    erase_tree(prepared);
    return wrong;
}

std::string PROVER::check_prepared(const SUBJECT& subject, NODE* tree, std::uint64_t seed, const TRIAL& trial,
                                   COUNTS& counts) {
    counts.trees++;
    const std::string text = line("tree", tree_to_text(tree));
    parameter_ = parameter_of(seed, static_cast<unsigned>(std::min<std::uint64_t>(tree->type->size(), 64)));
    if (subject.relation == RELATION::MASK) {
        const REP rep = rep_of(tree->type);
        parameter_ = extend(parameter_, rep.bits, false);
    }
    NODE* result = copy_tree(tree, false);
    if (subject.apply != nullptr) result = subject.apply(result, parameter_);
    has_result_ = result != nullptr;
    const auto report = [&](const std::string& what) {
        std::string full = what + text + line("typed", typed_text(tree));
        if (result != nullptr && subject.apply != nullptr)
            full += line("result", tree_to_text(result)) + line("typed", typed_text(result));
        if (subject.relation == RELATION::MASK) {
            char mask[32];
            std::snprintf(mask, sizeof mask, "0x%llx", static_cast<unsigned long long>(parameter_));
            full += line("mask", mask);
        }
        return full;
    };
    std::string wrong;
    if (result == nullptr && subject.relation != RELATION::EFFECTS) {
        wrong = report("nothing is left of the tree\n");
    } else if (result != nullptr &&
               !(wrong = check_shape(result, "the result is not well-typed: ")).empty()) {
        wrong = report(wrong);
    } else if (result != nullptr && subject.idempotent) {
        NODE* again = subject.apply(copy_tree(result, false), parameter_);
        if (again == nullptr || !same_tree(result, again))
            wrong =
                report("a second application changes the result\n") +
                line("again", again != nullptr ? tree_to_text(again) + "\n            " + typed_text(again)
                                               : "nothing");
        if (again != nullptr) erase_tree(again);
    }
    const bool same = result != nullptr && same_tree(tree, result);
    if (!same) counts.changed++;
    if (wrong.empty() && result == nullptr && !has_effects(tree)) return {};
    const bool same_is_right = subject.relation == RELATION::VALUE || subject.relation == RELATION::ZERO ||
                               subject.relation == RELATION::MASK;
    if (wrong.empty() && !(same && same_is_right)) {
        wrong = check_runs(subject, tree, result, seed, trial, counts);
        if (!wrong.empty()) wrong = report(wrong);
    }
    if (result != nullptr) erase_tree(result);
    return wrong;
}

std::string PROVER::check_runs(const SUBJECT& subject, NODE* tree, NODE* result, std::uint64_t seed,
                               const TRIAL& trial, COUNTS& counts) {
    if (std::string why = before_.translate(tree, palette_.layout); !why.empty())
        return "the generated tree cannot be evaluated: " + why + "\n";
    if (result != nullptr)
        if (std::string why = after_.translate(result, palette_.layout); !why.empty())
            return "the result cannot be evaluated: " + why + "\n";
    USE use;
    note_objects(tree, palette_, use.objects);
    walk_tree(tree, [&use](NODE* n) {
        if (n->op == ICON) use.constants.push_back(n->u.lval.bits());
    });
    if (use.objects.size() == 1) {
        const REP rep = rep_of(use.objects[0]->symbol->type);
        if (rep.kind == REP::INTEGER && rep.bits == 16 && !use.objects[0]->symbol->type->is_volatile())
            use.single = use.objects[0];
    }
    const CLAIMED claimed = subject.claim != nullptr ? subject.claim(tree) : CLAIMED{};
    const auto run_once = [&]() -> std::string {
        counts.runs++;
        memory_before_ = start_;
        before_.run(memory_before_, outcome_before_, true);
        if (outcome_before_.fault != nullptr) {
            counts.faulty++;
            return {};
        }
        memory_after_ = start_;
        if (result != nullptr) after_.run(memory_after_, outcome_after_, false);
        std::string why;
        if (agree(subject, claimed, why)) return {};
        why += line("assignment", show_assignment(use, start_));
        why += line("before", show_outcome(outcome_before_, before_.result()));
        if (subject.apply != nullptr && result != nullptr)
            why += line("after", show_outcome(outcome_after_, after_.result()));
        return why;
    };
    RANDOM random(seed ^ 0x72756e73);
    for (int round = 0; round < trial.rounds; round++) {
        assign(use, random, round);
        if (std::string why = run_once(); !why.empty()) return why;
        if (use.objects.empty()) return {}; // every round is the same
    }
    if (use.single == nullptr || trial.exhaustive_every == 0 || seed % trial.exhaustive_every != 0 ||
        size_of(tree) > EXHAUSTIVE_SIZE)
        return {};
    counts.exhaustive++;
    for (unsigned value = 0; value < 65536; value++) {
        start_.units[use.single->address] = static_cast<std::uint16_t>(value);
        if (std::string why = run_once(); !why.empty()) return why;
    }
    return {};
}

bool PROVER::agree(const SUBJECT& subject, const CLAIMED& claimed, std::string& why) const {
    const REP from = before_.result();
    const std::uint64_t value = outcome_before_.value;
    if (subject.relation == RELATION::CLAIM) {
        const std::uint64_t bits = extend(value, from.bits, false);
        const WIDE number =
            from.is_signed ? static_cast<WIDE>(static_cast<std::int64_t>(value)) : static_cast<WIDE>(value);
        char text[120] = "";
        if ((bits & ~claimed.may_be_one) != 0)
            std::snprintf(text, sizeof text, "a bit is one that was proved zero: mask 0x%llx",
                          static_cast<unsigned long long>(claimed.may_be_one));
        else if ((claimed.ones & ~bits) != 0)
            std::snprintf(text, sizeof text, "a bit is zero that was proved one: mask 0x%llx",
                          static_cast<unsigned long long>(claimed.ones));
        else if (claimed.has_range && (number < claimed.least || number > claimed.greatest))
            std::snprintf(text, sizeof text, "the value is outside its range: %lld to %llu",
                          static_cast<long long>(claimed.least),
                          static_cast<unsigned long long>(claimed.greatest));
        else if (claimed.factor == 0 ? number != 0 : number % static_cast<WIDE>(claimed.factor) != 0)
            std::snprintf(text, sizeof text, "the factor does not divide the value: %llu",
                          static_cast<unsigned long long>(claimed.factor));
        if (text[0] == '\0') return true;
        why = std::string(text) + "\n";
        return false;
    }
    static const OUTCOME nothing;
    const OUTCOME& after = has_result_ ? outcome_after_ : nothing;
    if (after.fault != nullptr) {
        why = "the result is faulty where the tree is not\n";
        return false;
    }
    if (after.events != outcome_before_.events) {
        why = "calls or volatile accesses differ\n";
        return false;
    }
    if (memory_after_.units != memory_before_.units) {
        for (const LAYOUT::OBJECT& o : palette_.layout.objects())
            for (unsigned i = 0; i < o.units; i++)
                if (memory_after_.units[o.address + i] != memory_before_.units[o.address + i]) {
                    char text[100];
                    std::snprintf(text, sizeof text, "%s differs afterwards: unit %u is %04x, not %04x\n",
                                  o.symbol->name, i,
                                  static_cast<unsigned>(memory_after_.units[o.address + i]),
                                  static_cast<unsigned>(memory_before_.units[o.address + i]));
                    why = text;
                    return false;
                }
    }
    const REP to = after_.result();
    switch (subject.relation) {
        case RELATION::VALUE:
            if (!from.is_scalar()) return true;
            why = "the values differ\n";
            if (from.bits != to.bits || from.is_float() != to.is_float()) {
                why = "the result has another type\n";
                return false;
            }
            return same_value(from, value, after.value);
        case RELATION::ZERO:
            why = "one of the two is zero\n";
            return !from.is_scalar() || is_true(from, value) == is_true(to, after.value);
        case RELATION::TRUTH:
            why = "the result is not the truth value\n";
            return after.value == (is_true(from, value) ? 1u : 0u) && !to.is_float();
        case RELATION::UNTRUTH:
            why = "the result is not the negation\n";
            return after.value == (is_true(from, value) ? 0u : 1u) && !to.is_float();
        case RELATION::JUMP:
            why = "the jump leads elsewhere\n";
            return after.value == (is_true(from, value) ? 1u : 2u);
        case RELATION::MASK:
            why = "the bits under the mask differ\n";
            if (from.bits != to.bits) {
                why = "the result has another type\n";
                return false;
            }
            return ((value ^ after.value) & parameter_) == 0;
        default: return true;
    }
}

} // namespace prove
