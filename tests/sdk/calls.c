/* Makes the calls that standard input names, one a line: a procedure and its arguments, with tabs between. Prints each
 * callback, and behind them "=", the status and the answer. */
#include "zorvalis.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#define N(at) strtoll(word[at], NULL, 10)
#define I(at) (int32_t)N(at)
#define F(at) I(at)
#define CALL(name, ...) if (strcmp(word[0], #name) == 0) status = Zorvalis##name(client, __VA_ARGS__);
#define FLAG(name, ...) CALL(name, __VA_ARGS__, &result)
#define TEXT(name, ...) CALL(name, __VA_ARGS__, &output)

static void testData(void* user, int64_t result, int64_t cookie) {
    fprintf(user, "testData\t%lld\t%lld\n", (long long)result, (long long)cookie);
}
static void text(void* user, const char* result, int32_t function, int64_t cookie) {
    fprintf(user, "text\t%s\t%d\t%lld\n", result, (int)function, (long long)cookie);
}
static void flag(void* user, int32_t result, int32_t function, int64_t cookie) {
    fprintf(user, "flag\t%d\t%d\t%lld\n", (int)result, (int)function, (long long)cookie);
}
static void integer(void* user, int32_t result, int32_t function, int64_t cookie) {
    fprintf(user, "integer\t%d\t%d\t%lld\n", (int)result, (int)function, (long long)cookie);
}

int main(void) {
    static char line[1 << 20];
    ZorvalisOptions options = {sizeof options, 120000, 120000, NULL};
    ZorvalisCallbacks callbacks = {sizeof callbacks, NULL, testData, text, flag, integer};
    ZorvalisClient* client = NULL;
    callbacks.user = stdout;
    if (ZorvalisOpen(&options, &callbacks, &client) != 0) return fprintf(stderr, "%s\n", ZorvalisErrorText());
    while (fgets(line, sizeof line, stdin) != NULL) {
        char *word[8], *at = line, *output = NULL;
        int32_t result = -1, status = -1, i;
        line[strcspn(line, "\r\n")] = '\0';
        for (i = 0; i < 8; ++i) {
            word[i] = at;
            at += strcspn(at, "\t");
            if (*at != '\0') *at++ = '\0';
        }
#include "calls.inc"
        printf("=\t%d\t", (int)status);
        printf(result == -1 ? "%s\n" : "%s%d\n", output != NULL ? output : "", (int)result);
        ZorvalisFree(output);
    }
    return ZorvalisClose(client) != 0;
}
