// What the writer and the reader promise each other.
#pragma once

#include "config/config.h"

namespace velun::fuzz {

/// Checks that the record's rendering reads back to the same record, but for the losses that
/// config/writer.h lists.
void check_reads_back(Config config);

}  // namespace velun::fuzz
