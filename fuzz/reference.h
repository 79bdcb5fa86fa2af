// The rules of the config file once more, written for these tests from the rules alone: slow, plain
// and without a line of the product's, so that a fault would have to be made twice to go unseen.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "config/config.h"
#include "config/reader.h"

namespace velun::fuzz::reference {

/// What the reader has to make of a text.
RawConfig read(const std::string& text, Problems& problems);

/// What the validator has to make of that.
Config judge(const RawConfig& raw, Problems& problems);

/// The known key that has to be suggested for an unknown one; the empty text for none.
std::string suggestion(std::string_view key);

/// The text as the writer has to put it into the file.
std::string quoted(const std::string& text);

/// The value that the reader has to make of such a text.
std::string unquoted(const std::string& text);

/// The values of a list that is written like this between its brackets.
std::vector<std::string> items_of(const std::string& inside);

}  // namespace velun::fuzz::reference
