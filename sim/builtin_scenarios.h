// builtin_scenarios.h - the scenario files of sim/scenarios/, built into modemsim.
#pragma once

namespace sim {

struct BuiltinScenario {
    const char* name;  // file name, such as "default.scn"
    const char* text;
};

// Ends with a row whose name is null.
extern const BuiltinScenario kBuiltinScenarios[];

}  // namespace sim
