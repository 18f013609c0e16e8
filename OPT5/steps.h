// The table of steps: what runs, what is listed, and what the documentation is made from.

#ifndef OPT5_STEPS_H
#define OPT5_STEPS_H

#include <cstdio>

// When the body of a step runs.
enum STEP_LEVEL { ANY_LEVEL, LEVEL_1_UP, LEVEL_2_UP, LEVEL_2_UP_F2 }; // F2: the function has several blocks

struct STEP_ROW {
    int id;
    const char* name;
    bool barrier;
    STEP_LEVEL level;
    void (*body)();    // null: not built yet, the step is empty
    const char* today; // what the step does today, for the documentation
};

constexpr int STEP_COUNT = 79; // the numbered steps and "output function"
constexpr int FIRST_DD_STEP = 28;
constexpr int LAST_DD_STEP = 59;
constexpr int OUTPUT_STEP = 78;

extern const STEP_ROW step_table[STEP_COUNT];

// Runs the body of a step if its level says so. To be called with the function, or no function, in work.
void run_step_body(int id);

// Writes the table as Markdown.
void document_steps(std::FILE* stream);

#endif
