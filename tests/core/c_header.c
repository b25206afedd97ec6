/* A C11 program using the public header: it must compile, link and see the record's layout. */
#include <stddef.h>
#include <stdio.h>

#include "atapi.h"

_Static_assert(sizeof(msg_q) == 1600, "msg_q is 1600 bytes");
_Static_assert(offsetof(msg_q, snd_rcv_msg) == 28, "union at 28");
_Static_assert(offsetof(msg_q, snd_rcv_msg.rmsg.ret_val) == 1592, "ret_val at 1592");

int main(void) {
    msg_q m = {0};
    /* No AT server in this test's environment: the call must fail cleanly. */
    int rc = GetDataFromAtServer(NULL);
    if (rc != -1) return 1;
    if (ATS_strlen_s(NULL) != 0) return 1;
    m.time_out = 1;
    printf("msg_q %zu bytes, GetDataFromAtServer(NULL) = %d\n", sizeof m, rc);
    return 0;
}
