// Initialisers: of static objects as flat lists, of locals as assignments.

#include <algorithm>

#include "tools/icode-cc/lowering.h"

using namespace clang;

namespace {

// Up to so many scalars a local aggregate is filled by assignments; beyond, from an image in static storage.
constexpr std::int64_t MAX_ASSIGNED_SCALARS = 16;

const InitListExpr* semantic(const InitListExpr* list) {
    return list->isSemanticForm() || list->getSemanticForm() == nullptr ? list : list->getSemanticForm();
}

const StringLiteral* string_of(const Expr* init) {
    init = init->IgnoreParens();
    if (const auto* list = dyn_cast<InitListExpr>(init); list != nullptr && list->getNumInits() == 1)
        init = list->getInit(0)->IgnoreParens();
    return dyn_cast<StringLiteral>(init);
}

} // namespace

model::tree* lowering::element(tree* array, TYPE* element_type, std::int64_t index) {
    tree* start = decay(clone(array), types_.mk_ptr(element_type));
    if (index == 0) return make(op::UMULT, element_type, start);
    return make(op::UMULT, element_type,
                make(op::PLUS, start->type, start, int_icon(index * units_of(element_type))));
}

std::int64_t lowering::scalars_in(TYPE* type) {
    if (type->is_array()) return type->array().count * scalars_in(type->elem_type());
    if (!type->is_csu()) return 1;
    std::int64_t n = 0;
    for (const fkMDATA* m : type->csu().members) {
        const std::int64_t k = scalars_in(m->type);
        n = type->is_union() ? std::max(n, k) : n + k;
    }
    return n;
}

bool lowering::is_zero(const Expr* init) {
    if (init == nullptr || isa<ImplicitValueInitExpr>(init)) return true;
    if (const auto* list = dyn_cast<InitListExpr>(init)) {
        list = semantic(list);
        for (unsigned i = 0; i < list->getNumInits(); i++)
            if (!is_zero(list->getInit(i))) return false;
        return list->getArrayFiller() == nullptr || is_zero(list->getArrayFiller());
    }
    const auto known = init->getType()->isScalarType() ? evaluate(init) : std::nullopt;
    return known && known->what == constant::form::integer && known->number == 0;
}

// --- Static objects.

void lowering::flatten(const Expr* init, TYPE* type, std::int64_t offset, std::vector<piece>& pieces) {
    if (init == nullptr || isa<ImplicitValueInitExpr>(init)) return;
    init = init->IgnoreParens();
    if (const auto* constant_expr = dyn_cast<ConstantExpr>(init))
        init = constant_expr->getSubExpr()->IgnoreParens();
    if (type->is_array()) {
        TYPE* element_type = type->elem_type();
        const auto stride = units_of(element_type) * 16;
        if (const StringLiteral* string = string_of(init)) {
            if (string->getCharByteWidth() == 1) {
                std::string bytes = string->getBytes().str();
                bytes.push_back('\0');
                if (type->array().count < bytes.size()) bytes.resize(type->array().count);
                if (bytes.empty()) return;
                tree* text = pool_.new_tree(
                    op::SCON, types_.mk_array(element_type, static_cast<unsigned>(bytes.size())));
                text->mk_scon(bytes.data(), static_cast<unsigned>(bytes.size()));
                pieces.push_back({offset, static_cast<unsigned>(bytes.size()) * 16, text});
                return;
            }
            for (unsigned i = 0; i < string->getLength() && i < type->array().count; i++)
                pieces.push_back({offset + i * stride, static_cast<unsigned>(stride),
                                  icon(element_type->stqs(), string->getCodeUnit(i))});
            return;
        }
        const auto* list = dyn_cast<InitListExpr>(init);
        if (list == nullptr) {
            refuse(init->getExprLoc(), "array initialiser is not supported");
            return;
        }
        list = semantic(list);
        for (unsigned i = 0; i < list->getNumInits(); i++)
            flatten(list->getInit(i), element_type, offset + i * stride, pieces);
        if (const Expr* filler = list->getArrayFiller(); filler != nullptr && !is_zero(filler))
            for (unsigned i = list->getNumInits(); i < type->array().count; i++)
                flatten(filler, element_type, offset + i * stride, pieces);
        return;
    }
    if (type->is_csu()) {
        if (const auto* literal = dyn_cast<CompoundLiteralExpr>(init))
            return flatten(literal->getInitializer(), type, offset, pieces);
        if (const auto* cast = dyn_cast<CastExpr>(init))
            return flatten(cast->getSubExpr(), type, offset, pieces);
        const auto* list = dyn_cast<InitListExpr>(init);
        if (list == nullptr) {
            refuse(init->getExprLoc(), "initialiser is not a constant");
            return;
        }
        list = semantic(list);
        const RecordDecl* record = list->getType()->castAs<RecordType>()->getDecl()->getDefinition();
        if (record->isUnion()) {
            const FieldDecl* chosen = list->getInitializedFieldInUnion();
            if (chosen != nullptr && list->getNumInits() > 0)
                if (const fkMDATA* m = member_of(chosen)) {
                    if (m->bit_field) {
                        const auto number = evaluate_integer(list->getInit(0));
                        pieces.push_back({offset + m->offset, m->width, nullptr, true, number.value_or(0)});
                    } else {
                        flatten(list->getInit(0), m->type, offset + m->offset, pieces);
                    }
                }
            return;
        }
        unsigned i = 0;
        for (const FieldDecl* f : record->fields()) {
            if (f->isUnnamedBitfield()) continue;
            if (i >= list->getNumInits()) break;
            const Expr* value = list->getInit(i++);
            const fkMDATA* m = member_of(f);
            if (value == nullptr || m == nullptr) continue;
            if (m->bit_field) {
                if (isa<ImplicitValueInitExpr>(value)) continue;
                const auto number = evaluate_integer(value);
                if (!number) refuse(value->getExprLoc(), "initialiser is not a constant");
                pieces.push_back({offset + m->offset, m->width, nullptr, true, number.value_or(0)});
            } else if (f->getType()->isIncompleteArrayType()) {
                // A flexible member has the bound that its initialiser gives it.
                flatten(value, type_of(value->getType()), offset + m->offset, pieces);
            } else {
                flatten(value, m->type, offset + m->offset, pieces);
            }
        }
        return;
    }
    if (const auto* list = dyn_cast<InitListExpr>(init)) {
        if (semantic(list)->getNumInits() > 0) flatten(semantic(list)->getInit(0), type, offset, pieces);
        return;
    }
    const auto known = evaluate(init);
    if (!known) {
        refuse(init->getExprLoc(), "initialiser is not a constant");
        return;
    }
    TYPE* plain = type->stqs();
    pieces.push_back({offset, static_cast<unsigned>(type->size()), from_constant(*known, plain)});
}

void lowering::write_pieces(std::vector<piece> pieces, std::vector<tree*>& trees) {
    std::stable_sort(pieces.begin(), pieces.end(),
                     [](const piece& a, const piece& b) { return a.offset < b.offset; });
    std::int64_t at = 0; // bits written
    const auto skip_to = [&](std::int64_t offset) {
        if (offset <= at) return;
        tree* skip = pool_.new_tree(op::SKIP, int_);
        skip->value = offset - at;
        trees.push_back(skip);
        at = offset;
    };
    for (std::size_t i = 0; i < pieces.size();) {
        if (!pieces[i].bit_field) {
            skip_to(pieces[i].offset);
            trees.push_back(pieces[i].value);
            at = std::max(at, pieces[i].offset + static_cast<std::int64_t>(pieces[i].width));
            i++;
            continue;
        }
        // Neighbouring bit-fields share units: each unit that they touch is one constant.
        std::map<std::int64_t, std::uint16_t> units;
        for (; i < pieces.size() && pieces[i].bit_field; i++)
            for (unsigned bit = 0; bit < pieces[i].width; bit++) {
                const std::int64_t place = pieces[i].offset + bit;
                std::uint16_t& unit = units[place / 16];
                if (bit < 64 && ((static_cast<std::uint64_t>(pieces[i].number) >> bit) & 1) != 0)
                    unit = static_cast<std::uint16_t>(unit | (1u << (place % 16)));
            }
        for (const auto& [number, bits] : units) {
            skip_to(number * 16);
            trees.push_back(icon(uint_, bits));
            at = number * 16 + 16;
        }
    }
    trees.push_back(pool_.new_tree(op::ENDINIT, int_));
}

std::vector<model::tree*> lowering::static_initialiser(const Expr* init, TYPE* type) {
    std::vector<piece> pieces;
    std::vector<tree*> trees;
    flatten(init, type, 0, pieces);
    write_pieces(std::move(pieces), trees);
    return trees;
}

// A nameless object in static storage with that content.
model::symbol* lowering::image(TYPE* type, std::vector<tree*> trees) {
    symbol* s = new_global("$C$" + std::to_string(next_anonymous_++), type, SC_STATIC, {});
    s->init = std::move(trees);
    with_initialiser_.push_back(s);
    return s;
}

// --- Locals.

void lowering::zero_fill(tree* target, TYPE* type, std::vector<tree*>& out) {
    if (type->is_array()) {
        for (std::int64_t i = 0; i < type->array().count; i++)
            zero_fill(element(target, type->elem_type(), i), type->elem_type(), out);
    } else if (type->is_csu()) {
        // The widest member of a union covers the others' storage.
        const fkMDATA* widest = nullptr;
        for (fkMDATA* m : type->csu().members) {
            if (!type->is_union()) zero_fill(field(clone(target), m, type), m->type, out);
            if (widest == nullptr || m->type->size() > widest->type->size()) widest = m;
        }
        if (type->is_union() && widest != nullptr)
            zero_fill(field(clone(target), const_cast<fkMDATA*>(widest), type), widest->type, out);
    } else {
        TYPE* plain = type->stqs();
        out.push_back(assign(clone(target), plain->is_fltpt() ? fcon(plain, 0) : icon(plain, 0)));
    }
}

// The elements that an initialiser names, each assigned; with `zeroed` the rest is zero already.
void lowering::initialise_elements(tree* target, const Expr* init, TYPE* type, bool zeroed,
                                   std::vector<tree*>& out) {
    if (init == nullptr || isa<ImplicitValueInitExpr>(init)) {
        if (!zeroed) zero_fill(target, type, out);
        return;
    }
    const Expr* bare = init->IgnoreParens();
    if (type->is_array()) {
        TYPE* element_type = type->elem_type();
        if (const StringLiteral* string = string_of(bare)) {
            for (std::int64_t i = 0; i < type->array().count; i++) {
                const std::int64_t unit =
                    i < string->getLength() ? string->getCodeUnit(static_cast<unsigned>(i)) : 0;
                if (unit != 0 || !zeroed)
                    out.push_back(assign(element(target, element_type, i), icon(element_type->stqs(), unit)));
            }
            return;
        }
        if (const auto* list = dyn_cast<InitListExpr>(bare)) {
            list = semantic(list);
            for (std::int64_t i = 0; i < type->array().count; i++) {
                const Expr* value = i < list->getNumInits() ? list->getInit(static_cast<unsigned>(i))
                                                            : list->getArrayFiller();
                initialise_elements(element(target, element_type, i), value, element_type, zeroed, out);
            }
            return;
        }
    } else if (type->is_csu()) {
        if (const auto* list = dyn_cast<InitListExpr>(bare)) {
            list = semantic(list);
            const RecordDecl* record = list->getType()->castAs<RecordType>()->getDecl()->getDefinition();
            if (record->isUnion()) {
                const FieldDecl* chosen = list->getInitializedFieldInUnion();
                fkMDATA* m = chosen != nullptr ? member_of(chosen) : nullptr;
                if (m == nullptr || list->getNumInits() == 0) {
                    if (!zeroed) zero_fill(target, type, out);
                    return;
                }
                if (!zeroed && m->type->size() < type->size()) zero_fill(target, type, out);
                initialise_elements(field(clone(target), m, type), list->getInit(0), m->type, zeroed, out);
                return;
            }
            unsigned i = 0;
            for (const FieldDecl* f : record->fields()) {
                if (f->isUnnamedBitfield()) continue;
                const Expr* value = i < list->getNumInits() ? list->getInit(i) : nullptr;
                i++;
                if (fkMDATA* m = member_of(f))
                    initialise_elements(field(clone(target), m, type), value, m->type, zeroed, out);
            }
            return;
        }
    } else if (const auto* list = dyn_cast<InitListExpr>(bare)) {
        list = semantic(list);
        initialise_elements(target, list->getNumInits() > 0 ? list->getInit(0) : nullptr, type, zeroed, out);
        return;
    }
    out.push_back(assign(clone(target), value(init)));
}

void lowering::initialise(tree* target, const Expr* init, TYPE* type, std::vector<tree*>& out) {
    const Expr* bare = init->IgnoreParens();
    const bool by_list = isa<InitListExpr>(bare) || (type->is_array() && string_of(bare) != nullptr);
    if (!by_list || scalars_in(type) <= MAX_ASSIGNED_SCALARS) {
        initialise_elements(target, init, type, false, out);
        return;
    }
    // Large: an image of zeros and constants, then what is not constant. A list that is constant throughout
    // needs the image alone.
    TYPE* plain = types_.remove_known_qual(type->is_array() ? type : type->stqs(), QUAL_CONST);
    std::vector<piece> pieces;
    std::vector<const Expr*> pending{bare};
    bool all_constant = true;
    while (!pending.empty() && all_constant) {
        const Expr* e = pending.back();
        pending.pop_back();
        if (e == nullptr || isa<ImplicitValueInitExpr>(e) || isa<StringLiteral>(e->IgnoreParens())) continue;
        if (const auto* list = dyn_cast<InitListExpr>(e->IgnoreParens())) {
            list = semantic(list);
            for (unsigned i = 0; i < list->getNumInits(); i++) pending.push_back(list->getInit(i));
            pending.push_back(list->getArrayFiller());
            continue;
        }
        all_constant = e->getType()->isScalarType() && evaluate(e).has_value();
    }
    std::vector<tree*> trees;
    if (all_constant) {
        flatten(init, type, 0, pieces);
        write_pieces(std::move(pieces), trees);
    } else {
        trees.push_back(pool_.new_tree(op::ENDINIT, int_));
    }
    out.push_back(assign(clone(target), name(image(plain, std::move(trees)))));
    if (!all_constant) initialise_elements(target, init, type, true, out);
}
