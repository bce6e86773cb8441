#pragma once
// The pieces the slowdown rules share: which programs are the system's own, the processor use of
// a set of names, and the later rules (memory holders, disk, background work, backup, power,
// uptime).

#include <string>
#include <string_view>
#include <vector>

#include "kit/insight/Slowdown.hpp"

namespace brimstell::slowdownRules {

// The sum of cpu over the processes whose executable's file name is one of names.
double cpuOf(const std::vector<Slowdown::Proc>& procs, const std::vector<std::string_view>& names);
// Whether the program is the system's own: it lies in a system folder, or (on Linux) it isn't the
// user's and we could not see where it lies.
bool systemOwn(const Slowdown::Load& load, std::uint32_t me);
// Whether a busy program, by its name (an executable's file name, or an app's name), is left to a
// rule of its own (background work, heat, backup, drawing).
bool excludedFromBusy(const std::string& name);
// The programs that draw the screen: "WindowServer"; on Linux the X server and the compositors.
const std::vector<std::string_view>& drawingNames();
// Whether uid is a person's account other than me.
bool otherAccount(std::uint32_t uid, std::uint32_t me);

void addMemoryHolders(const Slowdown::Reading& r, const std::vector<Slowdown::Load>& loads,
                      std::vector<Slowdown::Cause>& out);
void addDisk(const Slowdown::Reading& r, std::vector<Slowdown::Cause>& out);
void addWork(const Slowdown::Reading& r, std::vector<Slowdown::Cause>& out);
void addBackup(const Slowdown::Reading& r, std::vector<Slowdown::Cause>& out);
void addLowPower(const Slowdown::Reading& r, std::vector<Slowdown::Cause>& out);
void addUptime(const Slowdown::Reading& r, std::vector<Slowdown::Cause>& out);

// How many apps the memory rule names at most, and the least memory one must hold to be named.
inline constexpr std::size_t memoryHoldersShown = 3;
inline constexpr std::int64_t memoryHolderMinimum = 500'000'000;

}  // namespace brimstell::slowdownRules
