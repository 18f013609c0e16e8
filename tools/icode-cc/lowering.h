// Lowering of a C translation unit, as Clang parses it, to the intermediate file.
//
// Clang gives the syntax and the semantic checks; every size, offset and constant is computed here, by the
// data model of docs/data-model.md. A construct that has no lowering is reported and stops the output.

#ifndef TOOLS_ICODE_CC_LOWERING_H
#define TOOLS_ICODE_CC_LOWERING_H

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "clang/AST/ASTContext.h"
#include "clang/AST/Decl.h"
#include "clang/AST/Expr.h"
#include "clang/AST/Stmt.h"
#include "clang/AST/TypeLoc.h"
#include "clang/Basic/SourceManager.h"

#include "OPT5/if_file.h"
#include "OPT5/opcodes.h"
#include "OPT5/types.h"
#include "tools/model/tree.h"

// A loop or symbol pragma that the preprocessor met.
struct source_pragma {
    clang::SourceLocation where;
    int kind;           // PRAGMA_KIND
    std::string symbol; // of a symbol pragma, else empty
    std::vector<std::string> args;
    bool used = false;
};

// A constant: an integer, a single, or an address.
struct constant {
    enum class form { integer, floating, address, text };
    form what = form::integer;
    std::int64_t number = 0; // integer value; address: offset in units
    float single = 0;
    model::symbol* base = nullptr;                // address
    const clang::StringLiteral* string = nullptr; // text: address of a string
};

// Record of a function's body, kept until the function's symbols are known.
struct body_record {
    int id; // RECORD_ID
    bool has_psn = false;
    PSN psn{};
    model::tree* tree = nullptr;
    model::symbol* symbol = nullptr;
    const PRAGMA* pragma = nullptr;
    unsigned label = 0;
    std::string text;
};

class lowering {
  public:
    lowering(clang::ASTContext& context, std::vector<source_pragma>& pragmas);

    // Lowers the unit and writes it. False when a construct was refused; the errors are reported then.
    bool run(const std::string& file_name, const std::vector<std::string>& option_words);

    bool failed() const { return failed_; }

  private:
    using tree = model::tree;
    using symbol = model::symbol;

    // --- Errors.
    void refuse(clang::SourceLocation where, const std::string& what);

    // --- Types and layout (types.cpp).
    TYPE* type_of(clang::QualType type);
    TYPE* type_of(clang::TypeLoc where);
    TYPE* type_of(const clang::ValueDecl* decl);
    TYPE* type_of_builtin(const clang::BuiltinType* type);
    TYPE* type_of_record(const clang::RecordDecl* record);
    TYPE* type_of_enum(const clang::EnumDecl* decl);
    TYPE* type_of_typedef(const clang::TypedefNameDecl* decl);
    TYPE* type_of_function(const clang::FunctionType* type, const clang::FunctionDecl* decl);
    TYPE* qualified(TYPE* type, clang::Qualifiers qualifiers);
    void lay_out(const clang::RecordDecl* record, TYPE* type);
    fkMDATA* member_of(const clang::FieldDecl* field);
    std::int64_t units_of(TYPE* type) const { return static_cast<std::int64_t>(type->storage_size()); }
    // Offset of an indirect or direct member chain in bits, through offsetof's components.
    std::int64_t offset_of(const clang::OffsetOfExpr* expr);

    // --- Constants (constants.cpp). Empty when the expression is no constant.
    std::optional<constant> evaluate(const clang::Expr* expr);
    std::optional<constant> evaluate_cast(const clang::CastExpr* cast);
    std::optional<constant> evaluate_binary(const clang::BinaryOperator* expr);
    std::optional<constant> evaluate_address(const clang::Expr* lvalue);
    std::optional<std::int64_t> evaluate_integer(const clang::Expr* expr);
    constant convert(constant value, TYPE* to, TYPE* from);
    std::int64_t enumerator_value(const clang::EnumConstantDecl* decl);
    static std::int64_t wrap(std::int64_t value, TYPE* type);
    std::int64_t sizeof_value(const clang::UnaryExprOrTypeTraitExpr* expr);
    static std::int64_t character(const clang::CharacterLiteral* literal);

    // --- Trees.
    tree* make(int op, TYPE* type, tree* left = nullptr, tree* right = nullptr);
    tree* icon(TYPE* type, std::int64_t value);
    tree* int_icon(std::int64_t value) { return icon(int_, value); }
    tree* fcon(TYPE* type, float value);
    tree* name(symbol* s);
    tree* label_ref(unsigned number);
    tree* address_of(tree* lvalue);
    tree* convert(tree* value, TYPE* to);
    tree* to_bool(tree* value);
    tree* scon(const clang::StringLiteral* literal, TYPE* type, bool with_zero);
    tree* clone(const tree* t);
    tree* assign(tree* lvalue, tree* value);
    tree* scaled(tree* index, TYPE* element);
    tree* from_constant(const constant& value, TYPE* type);

    // --- Expressions (expressions.cpp).
    tree* value(const clang::Expr* expr);
    tree* lvalue(const clang::Expr* expr);
    tree* condition(const clang::Expr* expr);
    tree* value_of_cast(const clang::CastExpr* cast);
    tree* value_of_unary(const clang::UnaryOperator* expr);
    tree* value_of_binary(const clang::BinaryOperator* expr);
    tree* value_of_compound(const clang::CompoundAssignOperator* expr);
    tree* value_of_increment(const clang::UnaryOperator* expr);
    tree* value_of_call(const clang::CallExpr* expr);
    tree* value_of_builtin(const clang::CallExpr* expr, llvm::StringRef name);
    tree* value_of_va_arg(const clang::VAArgExpr* expr);
    tree* compare(clang::BinaryOperatorKind kind, tree* left, tree* right);
    tree* decay(tree* array_lvalue, TYPE* pointer);
    tree* reusable(tree* lvalue, tree*& first);
    tree* member(const clang::MemberExpr* expr);
    tree* in_temporary(tree* value, TYPE* type);
    // A value nobody reads: drops what has no effect.
    tree* effects(const clang::Expr* expr);

    // --- Initialisers (initialisers.cpp).
    struct piece {
        std::int64_t offset; // bits from the start of the object
        unsigned width;      // bits
        tree* value;         // ICON, FCON, address, SCON
        bool bit_field = false;
        std::int64_t number = 0; // value of a bit-field
    };
    void flatten(const clang::Expr* init, TYPE* type, std::int64_t offset, std::vector<piece>& pieces);
    void write_pieces(std::vector<piece> pieces, std::vector<tree*>& trees);
    std::vector<tree*> static_initialiser(const clang::Expr* init, TYPE* type);
    // Assignments that give a local its initial value, in order.
    void initialise(tree* target, const clang::Expr* init, TYPE* type, std::vector<tree*>& out);
    void initialise_elements(tree* target, const clang::Expr* init, TYPE* type, bool zeroed,
                             std::vector<tree*>& out);
    void zero_fill(tree* target, TYPE* type, std::vector<tree*>& out);
    std::int64_t scalars_in(TYPE* type);
    bool is_zero(const clang::Expr* init);
    symbol* image(TYPE* type, std::vector<tree*> trees);
    tree* in_sequence(const std::vector<tree*>& effects, tree* last);
    tree* element(tree* array, TYPE* element_type, std::int64_t index);
    tree* field(tree* aggregate, fkMDATA* member, TYPE* aggregate_type);

    // --- Statements (statements.cpp).
    void statement(const clang::Stmt* stmt);
    void block(const clang::CompoundStmt* stmt, bool is_body);
    void declarations(const clang::DeclStmt* stmt);
    void local_variable(const clang::VarDecl* decl);
    void emit(tree* t, clang::SourceLocation where);
    void emit_label(unsigned number);
    void emit_jump(unsigned number, clang::SourceLocation where);
    void emit_test(const clang::Expr* cond, unsigned if_zero, clang::SourceLocation where);
    void emit_pragmas(clang::SourceLocation where);
    void lower_if(const clang::IfStmt* stmt);
    void lower_loop(const clang::Stmt* init, const clang::Expr* cond, const clang::Expr* step,
                    const clang::Stmt* body, bool test_first, clang::SourceLocation where);
    void lower_switch(const clang::SwitchStmt* stmt);
    void lower_return(const clang::ReturnStmt* stmt);
    void lower_asm(const clang::GCCAsmStmt* stmt);
    void collect_locals(const clang::Stmt* stmt, std::vector<symbol*>& out);
    void declare_local(const clang::VarDecl* decl, std::vector<symbol*>& out);
    PSN position(clang::SourceLocation where);
    unsigned new_label() { return next_label_++; }
    unsigned label_of(const clang::LabelDecl* decl);
    void open_block(clang::SourceLocation where, const std::vector<symbol*>& symbols);
    void close_block(clang::SourceLocation where);

    // --- Declarations (declarations.cpp).
    symbol* symbol_of(const clang::ValueDecl* decl);
    symbol* global_symbol(const clang::VarDecl* decl);
    symbol* function_symbol(const clang::FunctionDecl* decl);
    symbol* new_global(const std::string& name, TYPE* type, int sclass, clang::SourceLocation where);
    symbol* new_local(const std::string& name, TYPE* type, int sclass, clang::SourceLocation where);
    symbol* temporary(TYPE* type);
    void add_pragma(symbol* s, int kind, std::vector<std::string> args = {});
    void attribute_pragmas(const clang::Decl* decl, symbol* s);
    void define_function(const clang::FunctionDecl* decl);
    void write_function(const clang::FunctionDecl* decl, symbol* s);
    void top_level(const clang::Decl* decl);
    void static_assertion(const clang::StaticAssertDecl* decl);
    void define_variable(const clang::VarDecl* decl, symbol* s);

    clang::ASTContext& ast_;
    clang::SourceManager& sources_;
    std::vector<source_pragma>& pragmas_;
    bool failed_ = false;
    clang::SourceLocation where_; // of the construct at hand, for errors that have no place of their own

    TYPE_PKG types_;
    model::pool pool_;
    I_FILE* file_ = nullptr;
    TYPE *int_ = nullptr, *uint_ = nullptr;

    std::unordered_map<const clang::Type*, TYPE*> type_map_;
    std::unordered_map<const clang::ValueDecl*, TYPE*> decl_types_;
    std::unordered_map<const clang::FieldDecl*, fkMDATA*> members_;
    std::unordered_map<const clang::EnumConstantDecl*, std::int64_t> enumerators_;
    std::unordered_map<const clang::ValueDecl*, symbol*> symbols_;
    std::unordered_map<std::string, symbol*> named_functions_;
    std::vector<symbol*> with_initialiser_;
    std::vector<const clang::FunctionDecl*> pending_functions_;
    unsigned next_anonymous_ = 0;

    // The function being lowered.
    const clang::FunctionDecl* function_ = nullptr;
    symbol* function_symbol_ = nullptr;
    std::vector<body_record> body_;
    std::vector<symbol*> params_;
    std::vector<symbol*> outer_locals_;
    std::unordered_map<const clang::LabelDecl*, unsigned> labels_;
    std::unordered_map<const clang::SwitchCase*, unsigned> case_labels_;
    std::vector<unsigned> break_labels_, continue_labels_;
    unsigned next_label_ = 1;
    unsigned next_call_ = 1;
    unsigned next_temp_ = 0;
};

#endif
