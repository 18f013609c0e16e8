// A mass on a damped spring in fixed point, drawn with one line per time step.
#include <stdio.h>

typedef long fixed; // 10 fraction bits
#define FIXED(x) ((fixed)((x)*1024))

static fixed multiply(fixed a, fixed b) { return a * b / 1024; }

struct spring {
    fixed place, speed;
    const fixed stiffness, damping;
};

static void step(struct spring* s) {
    fixed force = -multiply(s->stiffness, s->place) - multiply(s->damping, s->speed);
    s->speed += force;
    s->place += s->speed;
}

static void draw(fixed place, int width) {
    int column = (int)(place * (width / 2) / FIXED(10)) + width / 2;
    for (int i = 0; i <= width; i++) putchar(i == column ? 'o' : i == width / 2 ? '|' : ' ');
    putchar('\n');
}

int main(void) {
    struct spring s = {FIXED(10), 0, FIXED(0.15), FIXED(0.12)};
    for (int i = 0; i < 30; i++) {
        draw(s.place, 60);
        step(&s);
    }
    return 0;
}
