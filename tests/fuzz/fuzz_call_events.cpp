// fuzz_call_events - libFuzzer target for the ten call event report parsers.
//
// Every input goes to every parser, each time in a heap block of exactly its size plus the NUL
// and with a record sitting right before a guard zone, so that a read past the line or a write past
// the record is caught. A parser that fails must leave its record as it was; one that succeeds
// must say so in the message header.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "atapi.h"

namespace {

template <typename Rec>
void run(int (*parse)(char*, Rec*), const uint8_t* data, size_t size) {
    auto* line = static_cast<char*>(std::malloc(size + 1));
    if (size > 0) std::memcpy(line, data, size);
    line[size] = '\0';
    // The record alone in its own heap block: AddressSanitizer sees a write past it.
    auto* rec = static_cast<Rec*>(std::malloc(sizeof(Rec)));
    std::memset(rec, 0xA5, sizeof(Rec));
    Rec before;
    std::memcpy(&before, rec, sizeof(Rec));
    const int rc = parse(line, rec);
    if (rc == 0 && (rec->ucCmdFrom != 1 || rec->ucResult != 0)) std::abort();
    if (rc != 0 && std::memcmp(&before, rec, sizeof(Rec)) != 0) std::abort();
    if (size > 0 && std::memcmp(line, data, size) != 0) std::abort();  // the caller's line is left as it was
    std::free(rec);
    std::free(line);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size > 4 * AT_REPORT_STR_LEN) size = 4 * AT_REPORT_STR_LEN;
    // Lines hold no NUL: the parsers read up to the first one.
    if (const void* nul = std::memchr(data, '\0', size)) size = static_cast<size_t>(static_cast<const uint8_t*>(nul) - data);
    run(AtsOrigParse, data, size);
    run(AtsConfParse, data, size);
    run(AtsConnParse, data, size);
    run(AtsCendParse, data, size);
    run(AtsClipParse, data, size);
    run(AtsCcwaParse, data, size);
    run(AtsCcwaImsParse, data, size);
    run(AtsXlemaParse, data, size);
    run(at_cschaninfo_parse, data, size);
    run(AtsCallStateParse, data, size);
    return 0;
}
