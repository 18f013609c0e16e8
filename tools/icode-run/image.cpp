// Loading: globals get their addresses in file order, then their initial values.
//
// An initialiser is one tree a scalar, or a unit of bit-fields, in ascending order of address and without
// gaps: what lies between is spelled out as SKIP. Behind the last tree all is zero.

#include "tools/icode-run/image.h"

#include <algorithm>
#include <cstring>

#include "OPT5/opcodes.h"
#include "OPT5/pragma.h"
#include "OPT5/types.h"
#include "tools/icode-run/library.h"

using namespace op;

namespace run {

std::uint32_t units_of(TYPE* type) {
    return static_cast<std::uint32_t>(std::min<std::uint64_t>(type->storage_size(), 0x40000000));
}

std::uint32_t align_of(TYPE* type) { return std::clamp(type->align() / 16, 1u, 1024u); }

namespace {

unsigned pointer_bits_of(const TYPE_PKG& types) {
    unsigned bits = 0;
    for (TYPE* type : types.all_types())
        if (type != nullptr && type->kind() == TYPE::PTR_KIND)
            bits = std::max(bits, static_cast<unsigned>(std::min<std::uint64_t>(type->size(), 64)));
    return bits == 0 ? 16 : bits;
}

// A volatile object changes by itself, so that it may be const and yet not constant.
bool is_read_only(const model::symbol& symbol) {
    return symbol.type->is_const() && !symbol.type->is_volatile();
}

// The name under which a trace knows the object: a static of a function goes by both names.
std::string object_name(const model::symbol& symbol) {
    const PRAGMA* scope = symbol.pragma(PRAG_SCOPING_FUNC);
    return scope != nullptr && !scope->args.empty() ? scope->args[0] + ":" + symbol.name : symbol.name;
}

// A flexible last member makes an object larger than its type.
std::uint32_t object_units(const model::symbol& symbol) {
    return std::max(units_of(symbol.type), symbol.size / 16 + (symbol.size % 16 != 0 ? 1 : 0));
}

} // namespace

image::image(const model::program& source) : program(source), mem(pointer_bits_of(source.types)) {
    find_data_model();
    place_globals();
}

void image::find_data_model() {
    for (TYPE* type : program.types.all_types()) {
        if (type == nullptr || type->true_type() != type) continue;
        const scalar rep = scalar_of(type);
        if (type->is_int()) model.plain_int = rep, model.int_align = align_of(type);
        if (type->is_long()) model.long_int = rep, model.long_align = align_of(type);
        if (type->is_llong()) model.long_long = rep, model.long_long_align = align_of(type);
        if (type->is_double()) model.double_units = units_of(type), model.double_align = align_of(type);
        if (type->is_ptr() && rep.has_value()) model.pointer = rep, model.pointer_align = align_of(type);
    }
}

void image::place_globals() {
    // What a declaration of that name means. A static of a merged file is known in its own part only.
    std::unordered_map<std::string_view, const model::symbol*> defined;
    std::unordered_map<const model::symbol*, std::uint32_t> bodies;
    for (std::uint32_t i = 0; i < program.functions.size(); i++) {
        const model::symbol* symbol = program.functions[i].sym;
        bodies.emplace(symbol, i);
        if (symbol->sclass != SC_STATIC) defined.emplace(symbol->name, symbol);
    }
    for (const model::symbol* symbol : program.globals)
        if (symbol->sclass == SC_EXTDEF && !symbol->type->is_func()) defined.emplace(symbol->name, symbol);

    std::vector<const model::symbol*> declared_only;
    for (const model::symbol* symbol : program.globals) {
        global_place place;
        place.name = &symbol->name;
        if (auto body = bodies.find(symbol); body != bodies.end()) {
            place.kind = global_place::FUNCTION;
            place.function = body->second;
        } else if (symbol->sclass == SC_EXTERN || symbol->type->is_func()) {
            declared_only.push_back(symbol);
            continue;
        } else {
            place = place_object(*symbol);
        }
        places_.emplace(symbol, place);
    }
    for (const model::symbol* symbol : declared_only) {
        global_place place;
        if (auto definition = defined.find(symbol->name);
            definition != defined.end() && definition->second != symbol) {
            place = places_.at(definition->second);
        } else if (symbol->type->is_func()) {
            place.library = find_library(symbol->name);
            if (place.library != nullptr) place.kind = global_place::LIBRARY;
        } else {
            place = place_builtin_object(*symbol);
        }
        place.name = &symbol->name;
        places_.emplace(symbol, place);
    }
    for (const model::symbol* symbol : program.globals)
        if (!symbol->init.empty() && places_.at(symbol).kind == global_place::OBJECT)
            initialise(*symbol, places_.at(symbol).at);
}

// The optimizer puts statics together in structures; each of them keeps its name, which is that of its
// member.
global_place image::place_object(const model::symbol& symbol) {
    global_place place;
    place.kind = global_place::OBJECT;
    place.units = object_units(symbol);
    std::uint32_t align = std::max(align_of(symbol.type), std::clamp(symbol.align / 16, 1u, 1024u));
    place.at = mem.place_static(place.units, align, object_name(symbol),
                                is_read_only(symbol) ? UNIT_READ : UNIT_READ | UNIT_WRITE);
    if (symbol.name.starts_with("$O$cluster") && symbol.type->is_csu())
        for (const fkMDATA* member : symbol.type->csu().members)
            mem.name_part(place.at + static_cast<address>(member->offset / 16), units_of(member->type),
                          member->name);
    place.name = &symbol.name;
    return place;
}

// `stdin`, `stdout`, `stderr` and `errno`, under these names with any underscores before them. A stream may
// be declared as a pointer, whose value is then the handle, or as the object itself.
global_place image::place_builtin_object(const model::symbol& symbol) {
    static constexpr const char* streams[] = {"stdin", "stdout", "stderr"};
    const std::size_t letters = symbol.name.find_first_not_of('_');
    const std::string_view name =
        letters == std::string::npos ? std::string_view() : std::string_view(symbol.name).substr(letters);
    for (int i = 0; i < 3; i++) {
        if (name != streams[i]) continue;
        global_place place = place_object(symbol);
        streams_[i] = place.at;
        if (scalar_of(symbol.type).has_value())
            mem.initialise(place.at, 0, scalar_of(symbol.type).bits,
                           STREAM_HANDLES + static_cast<unsigned>(i));
        return place;
    }
    if (name == "errno") {
        global_place place = place_object(symbol);
        errno_ = place.at;
        return place;
    }
    return {};
}

void image::initialise(const model::symbol& symbol, address at) {
    const std::uint64_t size = std::uint64_t{object_units(symbol)} * 16;
    std::uint64_t bit = 0;
    auto put = [&](unsigned bits, std::uint64_t value) {
        if (bit + bits > size) throw bad_program("the initialiser of '" + symbol.name + "' is too long");
        mem.initialise(at, bit, bits, value);
        bit += bits;
    };
    for (const model::tree* tree : symbol.init) {
        if (tree->op == ENDINIT) break;
        if (tree->op == SKIP) {
            bit += static_cast<std::uint64_t>(std::max<std::int64_t>(tree->value, 0));
            continue;
        }
        if (tree->type == nullptr) throw bad_program("the initialiser of '" + symbol.name + "' lacks a type");
        if (tree->op == SCON && !tree->type->is_ptr()) {
            for (char c : tree->text) put(16, static_cast<unsigned char>(c));
            // An array longer than its characters is zero behind them.
            const std::uint64_t rest = tree->type->size();
            if (rest > tree->text.size() * 16) bit += rest - tree->text.size() * 16;
            continue;
        }
        const scalar rep = scalar_of(tree->type);
        if (!rep.has_value())
            throw bad_program("the initialiser of '" + symbol.name + "' holds a value of no scalar type");
        put(rep.bits, constant(tree, symbol));
        if (rep.bits < tree->type->size()) bit += tree->type->size() - rep.bits;
    }
}

// The value of a constant tree: a number, or an address with an offset under any conversions.
std::uint64_t image::constant(const model::tree* tree, const model::symbol& symbol) {
    std::uint64_t sum = 0;
    for (;;) {
        if (tree == nullptr) break;
        switch (tree->op) {
            case ICON:
            case LCON:
                if (scalar_of(tree->type).is_float()) return image_of(static_cast<float>(tree->value));
                return sum + static_cast<std::uint64_t>(tree->value);
            case FCON:
                return scalar_of(tree->type).is_float() ? image_of(tree->fcon())
                                                        : static_cast<std::uint64_t>(tree->value);
            case SCON: return sum + text_address(tree->text);
            case PCONV:
            case ACONV:
            case SCONV:
                if (tree->left != nullptr && tree->left->type != nullptr && tree->left->op == FCON &&
                    !scalar_of(tree->type).is_float())
                    return float_to_integer(tree->left->fcon(), 64, true);
                [[fallthrough]];
            case UAND:
            case EPVAL: tree = tree->left; continue;
            case NAME: {
                if (tree->sym == nullptr || tree->sym->level != 0) break;
                const global_place& place = place_of(tree->sym);
                if (place.kind == global_place::OBJECT) return sum + place.at;
                if (!tree->sym->type->is_func())
                    throw bad_program("the initialiser of '" + symbol.name + "' names '" + tree->sym->name +
                                      "', which is not defined");
                return sum + function_address(place);
            }
            case STDOT:
                if (tree->right == nullptr || tree->right->op != FIELD || tree->right->member == nullptr)
                    break;
                sum += static_cast<std::uint64_t>(tree->right->member->offset / 16);
                tree = tree->left;
                continue;
            case PLUS:
            case MINUS: {
                const model::tree* number = tree->right;
                if (number == nullptr) break;
                if (number->op == PMCONV && number->left != nullptr && number->right != nullptr &&
                    number->left->op == ICON && number->right->op == ICON) {
                    const std::int64_t units = number->left->value * (number->right->value / 16);
                    sum += static_cast<std::uint64_t>(tree->op == PLUS ? units : -units);
                } else if (number->op == ICON || number->op == LCON) {
                    const auto value = static_cast<std::uint64_t>(number->value);
                    sum = tree->op == PLUS ? sum + value : sum - value;
                } else {
                    break;
                }
                tree = tree->left;
                continue;
            }
            default: break;
        }
        break;
    }
    throw bad_program("the initialiser of '" + symbol.name + "' is not constant");
}

address image::text_address(std::string_view units) {
    auto [entry, is_new] = texts_.try_emplace(std::string(units), 0);
    if (is_new) {
        const auto n = static_cast<std::uint32_t>(units.size());
        entry->second = mem.place_static(n, 1, "string", UNIT_READ);
        for (std::uint32_t i = 0; i < n; i++)
            mem.initialise(entry->second + i, 0, 16, static_cast<unsigned char>(units[i]));
    }
    return entry->second;
}

address image::function_address(const global_place& place) {
    // Static functions of one name are different functions; what is not defined goes by its name.
    address& at = place.kind == global_place::FUNCTION ? addresses_of_bodies_[place.function]
                                                       : addresses_of_others_[*place.name];
    if (at == 0) {
        at = mem.place_function();
        functions_.emplace(at, place);
    }
    return at;
}

const global_place* image::function_at(address at) const {
    auto found = functions_.find(at);
    return found == functions_.end() ? nullptr : &found->second;
}

int image::stream_of(address handle) const {
    for (int i = 0; i < 3; i++)
        if (handle == STREAM_HANDLES + static_cast<address>(i) || (streams_[i] != 0 && streams_[i] == handle))
            return i;
    return -1;
}

} // namespace run
