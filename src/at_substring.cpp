// at_substring.cpp - splitting of many-line replies into one piece per reported line.
#include <cstdlib>
#include <cstring>

#include "atapi/parse.h"

namespace {

// The last piece of a text is kept in a block of this size, as the list readers expect.
constexpr size_t kLastPiece = 512;

char* copy_piece(const char* from, size_t length, size_t block) {
    auto* p = static_cast<char*>(qmx_malloc_internal(block, AT_PARSE_MAX_ALLOC, nullptr, nullptr, 0));
    if (p == nullptr) return nullptr;
    std::memcpy(p, from, length);
    p[length] = '\0';
    return p;
}

}  // namespace

extern "C" void get_substring(char* psource, char** parray, int* number, char* iden) {
    if (psource == nullptr || parray == nullptr || number == nullptr || iden == nullptr) return;
    const int capacity = *number;
    const size_t marker = std::strlen(iden);
    int stored = 0;
    const char* cur = psource;
    while (*cur != '\0' && stored < capacity) {
        // The marker is looked for after the piece's first character, so a piece that starts
        // with the marker is not empty.
        const char* next = marker > 0 ? std::strstr(cur + 1, iden) : nullptr;
        char* piece = nullptr;
        if (next != nullptr) {
            const auto length = static_cast<size_t>(next - cur);
            piece = copy_piece(cur, length, length + 1);
        } else {
            const size_t length = strnlen(cur, kLastPiece - 1);
            piece = copy_piece(cur, length, kLastPiece);
        }
        if (piece == nullptr) break;
        parray[stored++] = piece;
        if (next == nullptr) break;
        cur = next;
    }
    *number = stored;
}

extern "C" void reslease_substring(char** parray, int number) {
    if (parray == nullptr) return;
    for (int i = 0; i < number; ++i) {
        std::free(parray[i]);
        parray[i] = nullptr;
    }
}
