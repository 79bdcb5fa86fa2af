// Many combinations at once, each in a process of its own: most of them only wait.
#pragma once

#include <cstddef>
#include <functional>
#include <string>

namespace velun::test {

/// Whether all combinations are asked for, and not only those that are over soon.
bool wants_whole_matrix();

/// Whether no signal can reach a process outside.
bool runs_apart();

/// Calls `play` for each number below `count`, many at once, each in a process of its own that has
/// two minutes. What a call adds to the failures of the test is reported behind the text that
/// `name` has for its number. Prints how many there were and how long they took.
void side_by_side(const std::string& title, std::size_t count,
                  const std::function<void(std::size_t)>& play,
                  const std::function<std::string(std::size_t)>& name);

}  // namespace velun::test
