/* A router daemon in miniature, built against an installed tree: the installed header must give
 * the record's wire layout, and a command must go through the installed AT server. */
#include <stddef.h>
#include <stdio.h>

#include <atapi.h>

_Static_assert(sizeof(msg_q) == 1600, "msg_q is 1600 bytes");
_Static_assert(offsetof(msg_q, snd_rcv_msg.smsg.len) == 732, "request len at 732");
_Static_assert(offsetof(msg_q, snd_rcv_msg.rmsg.ret_val) == 1592, "ret_val at 1592");

int main(void) {
    AT_CSQ_ST csq = {0};
    const int rc = AT_Csq(&csq);
    printf("AT_Csq = %d, rssi %u, ber %u\n", rc, csq.rssi, csq.ber);
    const int rssi_ok = csq.rssi <= 31 || csq.rssi == 99;
    const int ber_ok = csq.ber <= 7 || csq.ber == 99;
    return rc == 0 && rssi_ok && ber_ok ? 0 : 1;
}
