// families.h - the readers behind atctl's subcommands, one per command family of the library.
//
// A reader makes the family's library calls and puts one Section per call into the report. It
// never sets anything on the modem: atctl only reads.
#pragma once

#include <optional>

#include "report.h"

namespace atctl {

struct Settings {
    bool json = false;
    // Offset of local time from universal time in quarter hours, as the network codes it.
    std::optional<int> zone;
};

void read_signal(const Settings& settings, Report& report);
void read_registration(const Settings& settings, Report& report);
void read_clock(const Settings& settings, Report& report);

}  // namespace atctl
