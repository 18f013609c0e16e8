// Types and layout: Clang's types mapped to those of the intermediate file.

#include "clang/AST/Attr.h"

#include "tools/icode-cc/lowering.h"

using namespace clang;

TYPE* lowering::qualified(TYPE* type, Qualifiers qualifiers) {
    unsigned bits = 0;
    if (qualifiers.hasConst()) bits |= QUAL_CONST;
    if (qualifiers.hasVolatile()) bits |= QUAL_VOLATILE;
    if (qualifiers.hasRestrict()) bits |= QUAL_RESTRICT;
    if (bits == 0) return type;
    // The qualifier of an array is that of its elements.
    if (type->is_array())
        return types_.mk_array(qualified(type->elem_type(), qualifiers), type->array().count,
                               type->array().is_complete, false, {type->size(), type->align()});
    return types_.mk_qual(type, static_cast<unsigned char>(bits));
}

TYPE* lowering::type_of_builtin(const BuiltinType* type) {
    switch (type->getKind()) {
        case BuiltinType::Void: return types_.mk_void();
        case BuiltinType::Bool: return types_.int_type(IK_BOOL);
        case BuiltinType::Char_S:
        case BuiltinType::Char_U: return types_.int_type(IK_CHAR);
        case BuiltinType::SChar: return types_.mk_int(IK_CHAR, true);
        case BuiltinType::UChar: return types_.int_type(IK_UCHAR);
        case BuiltinType::WChar_S:
        case BuiltinType::WChar_U: return types_.int_type(IK_WCHAR);
        case BuiltinType::Short: return types_.int_type(IK_SHORT);
        case BuiltinType::UShort: return types_.int_type(IK_USHORT);
        case BuiltinType::Int: return types_.int_type(IK_INT);
        case BuiltinType::UInt: return types_.int_type(IK_UINT);
        case BuiltinType::Long: return types_.int_type(IK_LONG);
        case BuiltinType::ULong: return types_.int_type(IK_ULONG);
        case BuiltinType::LongLong: return types_.int_type(IK_LLONG);
        case BuiltinType::ULongLong: return types_.int_type(IK_ULLONG);
        case BuiltinType::Float: return types_.flt_type(FK_FLOAT);
        case BuiltinType::Double: return types_.flt_type(FK_DOUBLE);
        case BuiltinType::LongDouble: return types_.flt_type(FK_LDOUBLE);
        case BuiltinType::Char16: return types_.int_type(IK_USHORT);
        case BuiltinType::Char32: return types_.int_type(IK_ULONG);
        default: return nullptr;
    }
}

TYPE* lowering::type_of_enum(const EnumDecl* decl) {
    const EnumDecl* definition = decl->getDefinition();
    if (definition == nullptr) return int_;
    TYPE* underlying = type_of(definition->getIntegerType());
    // The enumerators are computed here, since they may depend on sizes.
    std::vector<fkENUMERATOR> list;
    for (const EnumConstantDecl* constant : definition->enumerators()) {
        fkENUMERATOR item;
        item.name = intern_text(constant->getName().str());
        item.value = enumerator_value(constant);
        item.psn = position(constant->getLocation());
        item.has_psn = true;
        list.push_back(item);
    }
    const PSN psn = position(definition->getLocation());
    TYPE_LAYOUT layout{underlying->size(), underlying->align(), &psn};
    TYPE* type = types_.mk_enum(definition->getName().str().c_str(), underlying, 0, layout);
    types_.open_enum(type)->enumerators = std::move(list);
    types_.type_frozen(type);
    return type;
}

TYPE* lowering::type_of_record(const RecordDecl* record) {
    const RecordDecl* definition = record->getDefinition();
    const RecordDecl* decl = definition != nullptr ? definition : record;
    const clang::Type* key =
        decl->getTypeForDecl() != nullptr ? ast_.getRecordType(decl).getTypePtr() : nullptr;
    key = key->getCanonicalTypeInternal().getTypePtr();
    const auto known = type_map_.find(key);
    if (known != type_map_.end()) return known->second;

    const PSN psn = position(decl->getLocation());
    TYPE_LAYOUT layout{0, 16, &psn};
    const std::string name = decl->getName().str();
    TYPE* type =
        decl->isUnion() ? types_.mk_union(name.c_str(), layout) : types_.mk_struct(name.c_str(), layout);
    type_map_[key] = type;
    if (definition != nullptr)
        lay_out(definition, type);
    else
        types_.type_frozen(type);
    return type;
}

void lowering::lay_out(const RecordDecl* record, TYPE* type) {
    const bool is_union = record->isUnion();
    const bool packed = record->hasAttr<PackedAttr>();
    std::int64_t offset = 0, size = 0; // bits
    unsigned align = 16;
    for (const FieldDecl* field : record->fields()) {
        TYPE* field_type = type_of(field);
        const unsigned field_align =
            packed || field->hasAttr<PackedAttr>() ? 16 : std::max(16u, field_type->align());
        if (is_union) offset = 0;
        fkMDATA member;
        const std::string field_name = field->getName().str();
        member.name = field_name.c_str();
        member.type = field_type;
        member.psn = position(field->getLocation());
        member.has_psn = true;
        if (field->isBitField()) {
            const auto width = evaluate_integer(field->getBitWidth()).value_or(0);
            const auto container = static_cast<std::int64_t>(field_type->size());
            if (width > container) refuse(field->getLocation(), "bit-field is wider than its type");
            if (width == 0) { // closes the container
                offset = (offset + container - 1) / container * container;
                continue;
            }
            if (offset / container != (offset + width - 1) / container)
                offset = (offset + container - 1) / container * container;
            align = std::max(align, field_align);
            member.offset = offset;
            member.width = static_cast<unsigned>(width);
            member.bit_field = true;
            offset += width;
            size = std::max(size, offset);
            if (!field->isUnnamedBitfield()) members_[field] = types_.add_member(type, member);
            continue;
        }
        std::int64_t field_units_align = field_align;
        for (const auto* aligned : field->specific_attrs<AlignedAttr>())
            if (const Expr* expr = aligned->isAlignmentExpr() ? aligned->getAlignmentExpr() : nullptr)
                field_units_align =
                    std::max<std::int64_t>(field_units_align, evaluate_integer(expr).value_or(1) * 16);
        offset = (offset + field_units_align - 1) / field_units_align * field_units_align;
        align = std::max(align, static_cast<unsigned>(field_units_align));
        member.offset = offset;
        members_[field] = types_.add_member(type, member);
        const bool flexible = field->getType()->isIncompleteArrayType();
        offset += flexible ? 0 : units_of(field_type) * 16;
        size = std::max(size, offset);
    }
    for (const auto* aligned : record->specific_attrs<AlignedAttr>())
        if (const Expr* expr = aligned->isAlignmentExpr() ? aligned->getAlignmentExpr() : nullptr)
            align = std::max(align, static_cast<unsigned>(evaluate_integer(expr).value_or(1) * 16));
    size = (size + align - 1) / align * align;
    const PSN psn = position(record->getLocation());
    types_.set_layout(type, {static_cast<std::uint64_t>(size), align, &psn});
    types_.open_csu(type)->is_complete = true;
    types_.type_frozen(type);
}

fkMDATA* lowering::member_of(const FieldDecl* field) {
    type_of_record(field->getParent());
    const auto found = members_.find(field);
    return found == members_.end() ? nullptr : found->second;
}

TYPE* lowering::type_of_typedef(const TypedefNameDecl* decl) {
    TYPE* target = decl->getTypeSourceInfo() != nullptr ? type_of(decl->getTypeSourceInfo()->getTypeLoc())
                                                        : type_of(decl->getUnderlyingType());
    if (decl->isImplicit()) return target;
    const PSN psn = position(decl->getLocation());
    return types_.mk_typedef(decl->getName().str().c_str(), target, false, false,
                             {target->size(), target->align(), &psn});
}

TYPE* lowering::type_of_function(const FunctionType* type, const FunctionDecl* decl) {
    FUNC_BODY body;
    body.return_type = type_of(type->getReturnType().getUnqualifiedType());
    if (const auto* proto = dyn_cast<FunctionProtoType>(type)) {
        body.vararg = proto->isVariadic();
        for (unsigned i = 0; i < proto->getNumParams(); i++) {
            fkPARAM param;
            // A parameter's own array bound is gone; what it points at may still have one.
            param.type = type_of(proto->getParamType(i).getUnqualifiedType());
            if (decl != nullptr && i < decl->getNumParams())
                param.name = intern_text(decl->getParamDecl(i)->getName().str());
            body.params.push_back(param);
        }
    } else {
        body.proto = false;
    }
    return types_.mk_func(body);
}

TYPE* lowering::type_of(QualType qual) {
    const SplitQualType split = qual.split();
    const clang::Type* type = split.Ty;
    const auto known = type_map_.find(type);
    if (known != type_map_.end()) return qualified(known->second, split.Quals);

    TYPE* result = nullptr;
    if (const auto* builtin = dyn_cast<BuiltinType>(type)) {
        result = type_of_builtin(builtin);
    } else if (const auto* pointer = dyn_cast<PointerType>(type)) {
        result = types_.mk_ptr(type_of(pointer->getPointeeType()));
    } else if (const auto* alias = dyn_cast<TypedefType>(type)) {
        result = type_of_typedef(alias->getDecl());
    } else if (const auto* record = dyn_cast<RecordType>(type)) {
        result = type_of_record(record->getDecl());
    } else if (const auto* enumeration = dyn_cast<EnumType>(type)) {
        const EnumDecl* decl = enumeration->getDecl();
        if (decl->getDefinition() != nullptr) decl = decl->getDefinition();
        const clang::Type* key = ast_.getTypeDeclType(decl).getCanonicalType().getTypePtr();
        const auto entry = type_map_.find(key);
        result = entry != type_map_.end() ? entry->second : type_of_enum(decl);
        type_map_[key] = result;
    } else if (const auto* array = dyn_cast<ConstantArrayType>(type)) {
        result = types_.mk_array(type_of(array->getElementType()),
                                 static_cast<unsigned>(array->getSize().getZExtValue()));
    } else if (const auto* open = dyn_cast<IncompleteArrayType>(type)) {
        TYPE* element = type_of(open->getElementType());
        result = types_.mk_array(element, 0, false, false, {0, element->align()});
    } else if (const auto* function = dyn_cast<FunctionType>(type)) {
        result = type_of_function(function, nullptr);
    } else if (type->isVectorType() || type->isAnyComplexType() || type->isVariableArrayType() ||
               type->isAtomicType()) {
        result = nullptr;
    } else {
        const QualType inner = type->getLocallyUnqualifiedSingleStepDesugaredType();
        if (inner.getTypePtr() != type) result = type_of(inner);
    }
    if (result == nullptr) {
        refuse({}, "type '" + qual.getAsString() + "' is not supported");
        result = int_;
    }
    type_map_[type] = result;
    return qualified(result, split.Quals);
}

// As above, from the source of a type: array bounds are taken from their expressions, since the parser counts
// sizes in other units.
TYPE* lowering::type_of(TypeLoc where) {
    if (where.isNull()) return int_;
    const QualType qual = where.getType();
    if (const auto q = where.getAs<QualifiedTypeLoc>())
        return qualified(type_of(q.getUnqualifiedLoc()), qual.getLocalQualifiers());
    if (const auto paren = where.getAs<ParenTypeLoc>()) return type_of(paren.getInnerLoc());
    if (const auto attributed = where.getAs<AttributedTypeLoc>()) return type_of(attributed.getModifiedLoc());
    if (const auto pointer = where.getAs<PointerTypeLoc>())
        return types_.mk_ptr(type_of(pointer.getPointeeLoc()));
    if (const auto elaborated = where.getAs<ElaboratedTypeLoc>())
        return type_of(elaborated.getNamedTypeLoc());
    if (const auto array = where.getAs<ArrayTypeLoc>()) {
        if (isa<VariableArrayType>(qual.getTypePtr())) {
            refuse(where.getBeginLoc(), "variable length arrays are not supported");
            return int_;
        }
        TYPE* element = type_of(array.getElementLoc());
        if (const Expr* bound = array.getSizeExpr()) {
            const auto count = evaluate_integer(bound);
            if (!count || *count < 0)
                refuse(bound->getExprLoc(), "array bound is not a constant");
            else
                return types_.mk_array(element, static_cast<unsigned>(*count));
        }
        if (const auto* fixed = dyn_cast<ConstantArrayType>(qual.getTypePtr()))
            return types_.mk_array(element, static_cast<unsigned>(fixed->getSize().getZExtValue()));
        return types_.mk_array(element, 0, false, false, {0, element->align()});
    }
    return type_of(qual);
}

TYPE* lowering::type_of(const ValueDecl* decl) {
    const auto known = decl_types_.find(decl);
    if (known != decl_types_.end()) return known->second;
    TYPE* type = nullptr;
    if (const auto* function = dyn_cast<FunctionDecl>(decl)) {
        type = type_of_function(function->getType()->castAs<FunctionType>(), function);
    } else if (const auto* declarator = dyn_cast<DeclaratorDecl>(decl);
               declarator != nullptr && declarator->getTypeSourceInfo() != nullptr &&
               !isa<ParmVarDecl>(decl)) {
        type = type_of(declarator->getTypeSourceInfo()->getTypeLoc());
        // An open bound is closed by the initialiser, which Clang counts in elements.
        if (!type->is_complete() && decl->getType()->isConstantArrayType()) type = type_of(decl->getType());
    } else {
        type = type_of(decl->getType());
    }
    decl_types_[decl] = type;
    return type;
}

std::int64_t lowering::offset_of(const OffsetOfExpr* expr) {
    TYPE* type = type_of(expr->getTypeSourceInfo()->getTypeLoc());
    std::int64_t bits = 0;
    for (unsigned i = 0; i < expr->getNumComponents(); i++) {
        const OffsetOfNode& node = expr->getComponent(i);
        if (node.getKind() == OffsetOfNode::Field) {
            const fkMDATA* member = member_of(node.getField());
            if (member == nullptr) break;
            bits += member->offset;
            type = member->type;
        } else if (node.getKind() == OffsetOfNode::Array) {
            TYPE* element = type->elem_type();
            bits += evaluate_integer(expr->getIndexExpr(node.getArrayExprIndex())).value_or(0) *
                    units_of(element) * 16;
            type = element;
        }
    }
    return bits;
}
