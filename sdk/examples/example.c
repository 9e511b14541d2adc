/* One call as a JSON text, and one direct call, whose value comes by callback. */
#include <stdio.h>

#include "zorvalis.h"

static void text(void* user, const char* result, int32_t function, int64_t cookie) {
    (void)user;
    printf("function %d, cookie %d: %s\n", (int)function, (int)cookie, result);
}

int main(void) {
    ZorvalisOptions options = {sizeof options, 10000, 0, NULL}; /* waits 10 s for a service that is just starting */
    ZorvalisCallbacks callbacks = {sizeof callbacks, NULL, NULL, text, NULL, NULL};
    ZorvalisClient* client = NULL;
    char* answer;
    int32_t status = ZorvalisOpen(&options, &callbacks, &client);
    if (status == 0) {
        status = ZorvalisBigDataServiceCall(client, "{\"function\":9,\"version\":1}", 4096, &answer);
        if (status == 0) {
            puts(answer);
            ZorvalisFree(answer);
            status = ZorvalisGetModelName(client, 7);
        }
    }
    if (status != 0) {
        fprintf(stderr, "the service cannot be asked: %s (%d)\n", ZorvalisErrorText(), (int)status);
    }
    ZorvalisClose(client); /* null when it was not opened */
    return status != 0;
}
