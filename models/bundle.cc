#include "models/bundle.h"

#include <nlohmann/json.hpp>

#include "system/files.h"

namespace fs = std::filesystem;

namespace velun {
namespace {

// Models with at least this window have the full set of heads.
constexpr int full_window = 1024;

// The format is fixed byte for byte: no blanks, and the members in this order.
constexpr char full_prefix[] =
    R"({"head_order":["PERSON","CITY","STREET","ORG","EMAIL","USERNAME","URL","PHONE","ACCOUNT",)"
    R"("WALLET","CARD","NATIONAL_ID","PLATE","DOB","NETADDR","POSTAL_CODE","CUSTOMER_ID","SECRET",)"
    R"("CODENAME"],"default_off":[],"heads":{)";

constexpr char small_prefix[] =
    R"({"head_order":["PERSON","CITY","STREET","ORG"],"default_off":["ORG"],"heads":{)";

constexpr char detailed_heads[] =
    R"("PERSON":["O","B-PERSON-COMMON","I-PERSON-COMMON","B-PERSON-UNCOMMON","I-PERSON-UNCOMMON",)"
    R"("B-PERSON-RARE","I-PERSON-RARE"],)"
    R"("CITY":["O","B-CITY-MAJOR","I-CITY-MAJOR","B-CITY-MEDIUM","I-CITY-MEDIUM","B-CITY-SMALL",)"
    R"("I-CITY-SMALL"],)"
    R"("STREET":["O","B-STREET-GENERIC","I-STREET-GENERIC","B-STREET-SPECIFIC",)"
    R"("I-STREET-SPECIFIC","B-STREET-LOCAL","I-STREET-LOCAL"],)"
    R"("ORG":["O","B-ORG-INTERNATIONAL","I-ORG-INTERNATIONAL","B-ORG-NATIONAL","I-ORG-NATIONAL",)"
    R"("B-ORG-REGIONAL","I-ORG-REGIONAL"])";

constexpr const char* standard_heads[] = {"EMAIL",       "USERNAME", "URL",     "PHONE",
                                          "ACCOUNT",     "WALLET",   "CARD",    "NATIONAL_ID",
                                          "PLATE",       "DOB",      "NETADDR", "POSTAL_CODE",
                                          "CUSTOMER_ID", "SECRET",   "CODENAME"};

}  // namespace

bool bundle_complete(const fs::path& directory) {
  return (path_exists(directory / "model.fp32.onnx") ||
          path_exists(directory / "model.int8.onnx")) &&
         path_exists(directory / "tokenizer.json") && path_exists(directory / "labels.json");
}

std::string labels_json(const ModelCard& card) {
  const bool full = card.window >= full_window;
  std::string text = full ? full_prefix : small_prefix;
  text += detailed_heads;
  if (full) {
    for (const std::string head : standard_heads) {
      text += ",\"" + head + "\":[\"O\",\"B-" + head + "-STD\",\"I-" + head + "-STD\"]";
    }
  }
  return text + "}}\n";
}

// Nothing is escaped: the catalog's values need no escapes.
std::string manifest_json(const ModelCard& card) {
  std::string text =
      R"({"model":")" + card.display_name + R"(","window":)" + std::to_string(card.window);
  if (!card.segment.empty()) {
    text += R"(,"segment":")" + card.segment + "\"";
  }
  return text + "}\n";
}

void write_own_files(const ModelCard& card, const fs::path& bundle) {
  write_file(bundle / "labels.json", labels_json(card));
  write_file(bundle / "manifest.json", manifest_json(card));
}

bool tokenizer_parses(const fs::path& bundle) {
  const File file = open_for_reading(bundle / "tokenizer.json");
  // Parsed from the file: tens of megabytes need not be in memory, as text or as a tree.
  return file != nullptr && nlohmann::json::accept(file.get());
}

}  // namespace velun
