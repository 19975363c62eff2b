/* Prints the vendor text of the processor at hand; run once when the build is configured. */
#include <cpuid.h>
#include <stdio.h>
#include <string.h>

int main(void)
{
    unsigned int a = 0, word[3] = {0};
    char text[13] = {0};
    if (!__get_cpuid(0, &a, &word[0], &word[2], &word[1])) return 1;
    memcpy(text, word, 12);
    fputs(text, stdout);
    return 0;
}
