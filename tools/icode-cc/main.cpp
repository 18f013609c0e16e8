// icode-cc: C11 to intermediate file.

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string>
#include <system_error>
#include <vector>

#include <sys/resource.h>
#include <unistd.h>

#include "clang/AST/ASTConsumer.h"
#include "clang/Basic/DiagnosticSema.h"
#include "clang/Frontend/CompilerInstance.h"
#include "clang/Frontend/CompilerInvocation.h"
#include "clang/Frontend/FrontendAction.h"
#include "clang/Lex/LexDiagnostic.h"
#include "clang/Lex/Pragma.h"
#include "clang/Lex/Preprocessor.h"
#include "llvm/Support/raw_ostream.h"

#include "tools/icode-cc/lowering.h"

using namespace clang;

namespace {

struct command_line {
    std::vector<std::string> parser_args;
    std::vector<std::string> option_words;
    std::string input, output;
};

// One line per error, "FILE:LINE:COL: error: TEXT". What Clang finds by its own layout is left to the
// lowering, which knows ours.
class diagnostics final : public DiagnosticConsumer {
  public:
    void HandleDiagnostic(DiagnosticsEngine::Level level, const Diagnostic& info) override {
        if (level < DiagnosticsEngine::Error) return;
        if (info.getID() == diag::err_static_assert_failed ||
            info.getID() == diag::err_static_assert_requirement_failed)
            return;
        errors++;
        llvm::SmallString<128> text;
        info.FormatDiagnostic(text);
        std::string place;
        if (info.hasSourceManager() && info.getLocation().isValid()) {
            const SourceManager& sources = info.getSourceManager();
            const PresumedLoc at = sources.getPresumedLoc(sources.getExpansionLoc(info.getLocation()));
            if (at.isValid())
                place = std::string(at.getFilename()) + ":" + std::to_string(at.getLine()) + ":" +
                        std::to_string(at.getColumn()) + ": ";
        }
        if (place.empty()) place = "icode-cc: ";
        std::fprintf(stderr, "%serror: %s\n", place.c_str(), text.c_str());
    }

    unsigned errors = 0;
};

// #pragma NAME(arguments) or #pragma NAME arguments.
class pragma_handler final : public PragmaHandler {
  public:
    pragma_handler(const char* name, int kind, bool of_symbol, std::vector<source_pragma>& out)
        : PragmaHandler(name), kind_(kind), of_symbol_(of_symbol), out_(out) {}

    void HandlePragma(Preprocessor& preprocessor, PragmaIntroducer introducer, Token& first) override {
        source_pragma pragma;
        pragma.where = introducer.Loc.isValid() ? introducer.Loc : first.getLocation();
        pragma.kind = kind_;
        std::string word;
        const auto end_word = [&] {
            pragma.args.push_back(word);
            word.clear();
        };
        bool any = false;
        int depth = 0;
        Token token;
        for (preprocessor.Lex(token); token.isNot(tok::eod) && token.isNot(tok::eof);
             preprocessor.Lex(token)) {
            if (token.is(tok::l_paren) && depth++ == 0) continue;
            if (token.is(tok::r_paren) && --depth == 0) continue;
            any = true;
            if (token.is(tok::comma) && depth <= 1) {
                end_word();
                continue;
            }
            std::string spelling = preprocessor.getSpelling(token);
            if (spelling.size() >= 2 && spelling.front() == '"')
                spelling = spelling.substr(1, spelling.size() - 2);
            word += spelling;
        }
        if (any) end_word();
        if (of_symbol_ && !pragma.args.empty()) {
            pragma.symbol = pragma.args.front();
            pragma.args.erase(pragma.args.begin());
        }
        out_.push_back(std::move(pragma));
    }

  private:
    int kind_;
    bool of_symbol_;
    std::vector<source_pragma>& out_;
};

class lowering_consumer final : public ASTConsumer {
  public:
    lowering_consumer(CompilerInstance& compiler, const command_line& words,
                      std::vector<source_pragma>& pragmas, bool& complete)
        : compiler_(compiler), words_(words), pragmas_(pragmas), complete_(complete) {}

    void HandleTranslationUnit(ASTContext& context) override {
        const auto& client = static_cast<const diagnostics&>(compiler_.getDiagnosticClient());
        if (client.errors != 0) return;
        lowering unit(context, pragmas_);
        complete_ = unit.run(words_.output + ".tmp", words_.option_words);
    }

  private:
    CompilerInstance& compiler_;
    const command_line& words_;
    std::vector<source_pragma>& pragmas_;
    bool& complete_;
};

class lowering_action final : public ASTFrontendAction {
  public:
    explicit lowering_action(const command_line& words) : words_(words) {}
    bool complete = false;

  protected:
    std::unique_ptr<ASTConsumer> CreateASTConsumer(CompilerInstance& compiler, llvm::StringRef) override {
        Preprocessor& preprocessor = compiler.getPreprocessor();
        const struct {
            const char* name;
            int kind;
            bool of_symbol;
        } known[] = {{"MUST_ITERATE", PRAG_MUST_ITERATE, false},
                     {"PROB_ITERATE", PRAG_PROB_ITERATE, false},
                     {"UNROLL", PRAG_UNROLL, false},
                     {"DATA_ALIGN", PRAG_DATA_ALIGN, true},
                     {"DATA_SECTION", PRAG_DATA_SECTION, true},
                     {"CODE_SECTION", PRAG_CODE_SECTION, true}};
        for (const auto& pragma : known)
            preprocessor.AddPragmaHandler(
                new pragma_handler(pragma.name, pragma.kind, pragma.of_symbol, pragmas_));
        return std::make_unique<lowering_consumer>(compiler, words_, pragmas_, complete);
    }

  private:
    const command_line& words_;
    std::vector<source_pragma> pragmas_;
};

[[noreturn]] void usage(const char* what) {
    std::fprintf(
        stderr,
        "icode-cc: %s\nUsage: icode-cc [-I DIR] [-D NAME[=V]] [--opt-word WORD]... FILE.c -o FILE.ic\n",
        what);
    std::exit(1);
}

// The target's headers: beside the program, or where the environment says.
std::string header_directory() {
    if (const char* given = std::getenv("ICODE_CC_HEADERS")) return given;
    std::error_code error;
    const std::filesystem::path self = std::filesystem::read_symlink("/proc/self/exe", error);
    return (self.parent_path().parent_path() / "lib/icode/include").string();
}

command_line read_words(int argc, char** argv) {
    command_line words;
    for (int i = 1; i < argc; i++) {
        const std::string word = argv[i];
        const auto value = [&](const char* option) -> std::string {
            if (++i == argc) usage((std::string(option) + " needs a value").c_str());
            return argv[i];
        };
        if (word == "-o") {
            words.output = value("-o");
        } else if (word == "--opt-word") {
            words.option_words.push_back(value("--opt-word"));
        } else if (word == "-I" || word == "-D") {
            words.parser_args.push_back(word);
            words.parser_args.push_back(value(word.c_str()));
        } else if (word.rfind("-I", 0) == 0 || word.rfind("-D", 0) == 0) {
            words.parser_args.push_back(word);
        } else if (word == "--help") {
            std::printf("Usage: icode-cc [-I DIR] [-D NAME[=V]] [--opt-word WORD]... FILE.c -o FILE.ic\n");
            std::exit(0);
        } else if (word.size() > 1 && word[0] == '-') {
            usage(("unknown option " + word).c_str());
        } else if (words.input.empty()) {
            words.input = word;
        } else {
            usage("more than one input file");
        }
    }
    if (words.input.empty()) usage("no input file");
    if (words.output.empty()) usage("no output file (-o)");
    return words;
}

// Nested source costs the parser and the lowering host stack; the program runs itself again with enough.
void ensure_stack(char** argv) {
    constexpr rlim_t WANTED = rlim_t{1} << 30;
    rlimit limit{};
    if (getrlimit(RLIMIT_STACK, &limit) != 0 || limit.rlim_cur == RLIM_INFINITY || limit.rlim_cur >= WANTED)
        return;
    if (std::getenv("ICODE_CC_STACK") != nullptr) return;
    limit.rlim_cur = limit.rlim_max == RLIM_INFINITY || limit.rlim_max > WANTED ? WANTED : limit.rlim_max;
    if (setrlimit(RLIMIT_STACK, &limit) != 0) return;
    setenv("ICODE_CC_STACK", "1", 1);
    execv("/proc/self/exe", argv);
}

} // namespace

int main(int argc, char** argv) {
    ensure_stack(argv);
    const command_line words = read_words(argc, argv);

    std::vector<std::string> args = {"-triple",
                                     "msp430",
                                     "-std=gnu11",
                                     "-ffreestanding",
                                     "-fno-builtin",
                                     "-nostdsysteminc",
                                     "-w",
                                     "-fbracket-depth",
                                     "100000",
                                     "-internal-isystem",
                                     header_directory(),
                                     "-x",
                                     "c"};
    args.insert(args.end(), words.parser_args.begin(), words.parser_args.end());
    args.push_back(words.input);
    std::vector<const char*> arg_texts;
    for (const std::string& arg : args) arg_texts.push_back(arg.c_str());

    CompilerInstance compiler;
    diagnostics client;
    compiler.createDiagnostics(&client, false);
    if (!CompilerInvocation::CreateFromArgs(compiler.getInvocation(), arg_texts, compiler.getDiagnostics()))
        return 1;
    lowering_action action(words);
    compiler.ExecuteAction(action);
    const std::string temporary = words.output + ".tmp";
    if (client.errors != 0 || !action.complete) {
        std::remove(temporary.c_str());
        return 1;
    }
    if (std::rename(temporary.c_str(), words.output.c_str()) != 0) {
        std::perror(words.output.c_str());
        std::remove(temporary.c_str());
        return 1;
    }
    return 0;
}
