// A program's file, read as the kernel, the loader and a debugger would read it.
#pragma once

#include <elf.h>
#include <link.h>

#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace velun::test {

/// A function that is in the file, under the name that the linker knows.
struct Function {
  std::string name;
  std::uint64_t address = 0;
  bool seen_outside = false;  ///< of its source file
  std::string code;
};

class ElfFile {
 public:
  // The records of a file for this processor.
  using Header = ElfW(Ehdr);
  using Segment = ElfW(Phdr);
  using Section = ElfW(Shdr);
  using Symbol = ElfW(Sym);
  using Entry = ElfW(Dyn);

  /// Fails the test when the file cannot be read.
  explicit ElfFile(const std::filesystem::path& path);

  const Header& header() const { return header_; }
  const std::vector<Segment>& segments() const { return segments_; }

  /// The first segment of a type.
  std::optional<Segment> segment(ElfW(Word) type) const;

  /// The values of all dynamic entries with a tag.
  std::vector<ElfW(Xword)> dynamic(ElfW(Sxword) tag) const;

  /// The functions that velun's own sources define.
  std::vector<Function> own_functions() const;

  /// Those of the HTTP library, which are compiled along with them.
  std::vector<Function> http_functions() const;

  /// What those call by name, be it in the file or in a library.
  std::set<std::string> called_by_own_functions() const;

 private:
  struct Symbols {
    std::vector<Symbol> entries;
    std::size_t names = 0;  // where their names begin
  };

  std::vector<Function> functions(bool (*wanted)(const std::string& name)) const;
  Symbols symbols(ElfW(Word) section_type) const;
  std::string name_of(const Symbols& symbols, const Symbol& entry) const;
  std::string bytes_at(std::uint64_t address, std::uint64_t size) const;

  std::string bytes_;
  Header header_{};
  std::vector<Segment> segments_;
  std::vector<Section> sections_;
};

}  // namespace velun::test
