// The single-precision math functions where their results are exact or known to a stated number of digits.
#include <math.h>
#include <stdio.h>

static float hypotenuse(float a, float b) { return sqrtf(a * a + b * b); }

int main(void) {
    printf("%f %f %f\n", sqrtf(2.25f), sqrtf(0.0f), hypotenuse(3, 4));
    printf("%f %f %f\n", fabsf(-1.5f), fabsf(0.25f), fabsf(-0.0f));
    printf("%f %f %f %f\n", floorf(1.75f), floorf(-1.25f), ceilf(1.25f), ceilf(-1.75f));
    printf("%f %f\n", fmodf(7.5f, 2.0f), fmodf(-7.5f, 2.0f));
    printf("%.3f %.3f %.3f\n", sinf(0.0f), cosf(0.0f), sinf(1.57079637f));
    printf("%.3f %.3f\n", tanf(0.5f), atan2f(1.0f, -1.0f));
    printf("%.3f %.3f %.3f\n", expf(1.0f), logf(10.0f), powf(2.0f, 10.0f));
    printf("%.3f %.3f\n", log10f(1000.0f), atanf(1.0f));
    float sum = 0;
    for (int i = 1; i <= 16; i++) sum += sqrtf((float)(i * i));
    printf("%f\n", sum);
    return 0;
}
