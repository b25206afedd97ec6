// smscodec.h - SMS PDUs as 3GPP TS 23.040 and 23.038 define them, for atctl and the simulated
// modem: SMS-SUBMIT encoding (split into concatenated parts when the text is long), SMS-DELIVER
// and SMS-SUBMIT decoding, the GSM 7-bit default alphabet with its extension table, UCS-2, address
// types 129/145 and alphanumeric senders, and service-centre time stamps with quarter-hour zones.
//
// Texts are UTF-8 on this side. A PDU is hexadecimal text that starts with the service-centre
// part, as "AT+CMGS" and "+CMGR" carry it. Nothing here throws on bad input: a PDU that is not
// well formed gives an error text, a number that cannot be an address gives nothing.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace smscodec {

enum class Coding { gsm7, data8, ucs2 };

inline constexpr int kTypeNational = 129;       // unknown / national numbering
inline constexpr int kTypeInternational = 145;  // international, shown with a leading '+'
inline constexpr int kTypeAlphanumeric = 208;   // a sender name in the 7-bit alphabet

struct Address {
    std::string text;  // digits (with '+' when international) or the alphanumeric name
    int type = kTypeNational;
    bool operator==(const Address&) const = default;
};

// A service-centre time stamp: local time and its offset from universal time.
struct Timestamp {
    int year = 2000;  // 2000 to 2099
    int month = 1, day = 1, hour = 0, minute = 0, second = 0;
    int zone = 0;     // quarter hours east of universal time, -79 to 79
    bool operator==(const Timestamp&) const = default;
};

// One part of a concatenated message (information element 0 or 8 of the user-data header).
struct Concat {
    int reference = 0;
    int total = 1;
    int sequence = 1;
    bool wide = false;  // a 16-bit reference
    bool operator==(const Concat&) const = default;
};

enum class Kind { deliver, submit };

struct Message {
    Kind kind = Kind::deliver;
    Address smsc;                    // empty text: the PDU names no service centre
    Address address;                 // the originator of a DELIVER, the destination of a SUBMIT
    int pid = 0;
    int dcs = 0;
    Coding coding = Coding::gsm7;
    Timestamp time{};                // DELIVER only
    int reference = 0;               // SUBMIT only: message reference
    int validity = -1;               // SUBMIT only: relative validity octet, -1 when none
    bool status_report = false;      // asked for (SUBMIT) or to be sent (DELIVER)
    std::optional<Concat> concat;
    std::string text;                // UTF-8 (gsm7, ucs2)
    std::string data;                // the raw bytes of an 8-bit message
};

struct Decoded {
    std::optional<Message> message;
    std::string error;               // why there is none
};

// A hexadecimal PDU with its service-centre part.
Decoded decode(std::string_view hex);

struct Pdu {
    std::string hex;  // service-centre part first
    int length = 0;   // octets of the TPDU (without the service-centre part), as "AT+CMGS=" wants
};

// Encodes a whole message as it stands (one part; no splitting). Nothing when an address, the
// text or a field cannot be encoded.
std::optional<Pdu> encode(const Message& m);

struct SubmitOptions {
    int validity = -1;          // relative validity octet, -1 for none
    bool status_report = false;
    int reference = 0;          // concatenation reference of a long text
    bool wide_reference = false;
};

// The SMS-SUBMIT PDUs of a text to `to`: one, or the parts of a concatenated message. The 7-bit
// alphabet when every character has a code in it, else UCS-2. Empty when `to` is no number or
// the text needs more than 255 parts.
std::vector<Pdu> encode_submit(std::string_view to, std::string_view utf8, const SubmitOptions& options = {});

// A number as an address: "+..." international, other digits national, anything else (a name)
// alphanumeric. Digits may include '*', '#', 'a', 'b', 'c'.
Address address_of(std::string_view text);

// Whether every character of the text has a code in the 7-bit alphabet (extension table included).
bool fits_gsm7(std::string_view utf8);

// UCS-2 as big-endian bytes (characters past U+FFFF as surrogate pairs), and back to UTF-8.
std::string ucs2_encode(std::string_view utf8);
std::string ucs2_decode(std::string_view bytes);

// Bytes as upper-case hexadecimal digits, and back (nothing for an odd count or a non-digit).
std::string hex_encode(std::string_view bytes);
std::optional<std::string> hex_decode(std::string_view hex);

// Concatenated parts put back together: parts of one message share originator, reference and
// total. Messages are taken in the order given; a part's position is its sequence number.
struct Assembled {
    std::vector<size_t> parts;  // indexes into the input, in sequence order
    bool complete = false;
    std::string text;           // the parts' texts joined; a missing part is shown as "[...]"
};
std::vector<Assembled> assemble(const std::vector<Message>& messages);

}  // namespace smscodec
