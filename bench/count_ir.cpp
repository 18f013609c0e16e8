// Adds counters of executed instructions to a program in LLVM's bitcode, by the classes in which `icode-run
// --stats` counts operators. The program prints them as one line of JSON on standard error when it ends.

#include <array>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include <llvm/Bitcode/BitcodeWriter.h>
#include <llvm/IR/IRBuilder.h>
#include <llvm/IR/Instructions.h>
#include <llvm/IR/IntrinsicInst.h>
#include <llvm/IR/LLVMContext.h>
#include <llvm/IR/Module.h>
#include <llvm/IR/Verifier.h>
#include <llvm/IRReader/IRReader.h>
#include <llvm/Support/FileSystem.h>
#include <llvm/Support/SourceMgr.h>
#include <llvm/Support/raw_ostream.h>
#include <llvm/Transforms/Utils/ModuleUtils.h>

namespace {

enum CLASS {
    ARITHMETIC,
    COMPARE,
    CONVERT,
    LOAD,
    STORE,
    ADDRESS,
    MOVE,
    BRANCH,
    CALL,
    CLASSES,
    NONE = CLASSES
};

constexpr const char* class_names[CLASSES] = {"arithmetic", "compare", "convert", "load", "store",
                                              "address",    "move",    "branch",  "call"};

CLASS class_of(const llvm::Instruction& instruction) {
    using llvm::Instruction;
    if (instruction.isDebugOrPseudoInst() || instruction.isLifetimeStartOrEnd()) return NONE;
    if (instruction.isBinaryOp() || instruction.isUnaryOp()) return ARITHMETIC;
    // A pointer seen as another is the same pointer.
    if (llvm::isa<llvm::BitCastInst>(instruction)) return NONE;
    if (instruction.isCast()) return CONVERT;
    switch (instruction.getOpcode()) {
        case Instruction::ICmp:
        case Instruction::FCmp: return COMPARE;
        case Instruction::Load: return LOAD;
        case Instruction::Store: return STORE;
        case Instruction::GetElementPtr: return ADDRESS;
        case Instruction::Select: return MOVE;
        case Instruction::Br:
        case Instruction::Switch: return BRANCH;
        case Instruction::Call: return CALL;
        default: return llvm::isa<llvm::IntrinsicInst>(instruction) ? ARITHMETIC : NONE;
    }
}

class COUNTERS {
  public:
    explicit COUNTERS(llvm::Module& module)
        : module_(module), word_(llvm::Type::getInt64Ty(module.getContext())),
          array_(llvm::ArrayType::get(word_, CLASSES)),
          counters_(new llvm::GlobalVariable(module, array_, false, llvm::GlobalValue::InternalLinkage,
                                             llvm::ConstantAggregateZero::get(array_), "executed")) {}

    void count(llvm::Function& function) {
        for (llvm::BasicBlock& block : function) {
            std::array<std::uint64_t, CLASSES + 1> executed{};
            for (const llvm::Instruction& instruction : block) executed[class_of(instruction)]++;
            llvm::IRBuilder<> builder(&block, block.getFirstInsertionPt());
            for (unsigned i = 0; i < CLASSES; i++) {
                if (executed[i] == 0) continue;
                llvm::Value* place = builder.CreateConstInBoundsGEP2_32(array_, counters_, 0, i);
                llvm::Value* before = builder.CreateLoad(word_, place);
                builder.CreateStore(builder.CreateAdd(before, builder.getInt64(executed[i])), place);
            }
        }
    }

    // A function that runs when the program ends.
    void print_at_end() {
        llvm::LLVMContext& context = module_.getContext();
        auto* number = llvm::Type::getInt32Ty(context);
        auto* function =
            llvm::Function::Create(llvm::FunctionType::get(llvm::Type::getVoidTy(context), false),
                                   llvm::GlobalValue::InternalLinkage, "print_executed", module_);
        llvm::IRBuilder<> builder(llvm::BasicBlock::Create(context, "", function));
        std::string format = "{";
        std::vector<llvm::Value*> arguments{builder.getInt32(2), nullptr};
        for (unsigned i = 0; i < CLASSES; i++) {
            format += std::string(i == 0 ? "\"" : ", \"") + class_names[i] + "\": %llu";
            arguments.push_back(
                builder.CreateLoad(word_, builder.CreateConstInBoundsGEP2_32(array_, counters_, 0, i)));
        }
        arguments[1] = builder.CreateGlobalStringPtr(format + "}\n");
        auto* print = llvm::FunctionType::get(number, {number, builder.getInt8PtrTy()}, true);
        builder.CreateCall(print, module_.getOrInsertFunction("dprintf", print).getCallee(), arguments);
        builder.CreateRetVoid();
        llvm::appendToGlobalDtors(module_, function, 0);
    }

  private:
    llvm::Module& module_;
    llvm::Type* word_;
    llvm::ArrayType* array_;
    llvm::GlobalVariable* counters_;
};

} // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "Usage: count_ir PROGRAM.bc RESULT.bc\n");
        return 2;
    }
    llvm::LLVMContext context;
    llvm::SMDiagnostic diagnostic;
    const std::unique_ptr<llvm::Module> module = llvm::parseIRFile(argv[1], diagnostic, context);
    if (module == nullptr) {
        diagnostic.print("count_ir", llvm::errs());
        return 1;
    }
    COUNTERS counters(*module);
    for (llvm::Function& function : *module)
        if (!function.isDeclaration()) counters.count(function);
    counters.print_at_end();
    std::error_code error;
    llvm::raw_fd_ostream result(argv[2], error);
    if (error || llvm::verifyModule(*module, &llvm::errs())) {
        std::fprintf(stderr, "count_ir: %s: cannot be written\n", argv[2]);
        return 1;
    }
    llvm::WriteBitcodeToFile(*module, result);
    return 0;
}
