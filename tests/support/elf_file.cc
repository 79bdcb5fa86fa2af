#include "tests/support/elf_file.h"

#include <gtest/gtest.h>

#include <cstring>

#include "tests/support/sandbox.h"

namespace velun::test {
namespace {

template <typename Record>
std::vector<Record> records(const std::string& bytes, std::size_t offset, std::size_t count) {
  std::vector<Record> result(count);
  if (offset + count * sizeof(Record) > bytes.size()) {
    ADD_FAILURE() << "the file ends before its records do";
    return {};
  }
  std::memcpy(result.data(), bytes.data() + offset, count * sizeof(Record));
  return result;
}

// Where the instruction at `place` of a function jumps to and comes back from; 0 for any other
// instruction. What only looks like one in the middle of another leads nowhere of interest.
std::uint64_t called_at(ElfW(Half) machine, const Function& function, std::size_t place) {
  const std::uint64_t address = function.address + place;
  if (machine == EM_X86_64 && function.code[place] == '\xe8' && place + 5 <= function.code.size()) {
    std::int32_t distance = 0;
    std::memcpy(&distance, function.code.data() + place + 1, sizeof distance);
    return address + 5 + static_cast<std::uint64_t>(distance);
  }
  if (machine == EM_AARCH64 && place % 4 == 0 && place + 4 <= function.code.size()) {
    std::uint32_t word = 0;
    std::memcpy(&word, function.code.data() + place, sizeof word);
    if (word >> 26U == 0x25) {  // bl
      const auto distance = static_cast<std::int32_t>(word << 6U) >> 4U;
      return address + static_cast<std::uint64_t>(std::int64_t{distance});
    }
  }
  return 0;
}

}  // namespace

ElfFile::ElfFile(const std::filesystem::path& path) : bytes_(read_file(path)) {
  header_ = records<Header>(bytes_, 0, 1).at(0);
  segments_ = records<Segment>(bytes_, header_.e_phoff, header_.e_phnum);
  sections_ = records<Section>(bytes_, header_.e_shoff, header_.e_shnum);
}

std::optional<ElfFile::Segment> ElfFile::segment(ElfW(Word) type) const {
  for (const Segment& each : segments_) {
    if (each.p_type == type) {
      return each;
    }
  }
  return std::nullopt;
}

std::vector<ElfW(Xword)> ElfFile::dynamic(ElfW(Sxword) tag) const {
  std::vector<ElfW(Xword)> values;
  if (const auto table = segment(PT_DYNAMIC)) {
    const std::size_t count = table->p_filesz / sizeof(Entry);
    for (const auto& entry : records<Entry>(bytes_, table->p_offset, count)) {
      if (entry.d_tag == tag) {
        values.push_back(entry.d_un.d_val);
      }
    }
  }
  return values;
}

std::vector<Function> ElfFile::own_functions() const {
  return functions([](const std::string& name) {
    return name == "main" || name.find("5velun") != std::string::npos;
  });
}

std::vector<Function> ElfFile::http_functions() const {
  return functions(
      [](const std::string& name) { return name.find("5boost5beast") != std::string::npos; });
}

std::vector<Function> ElfFile::functions(bool (*wanted)(const std::string& name)) const {
  std::vector<Function> functions;
  const Symbols table = symbols(SHT_SYMTAB);
  for (const auto& entry : table.entries) {
    const std::string name = name_of(table, entry);
    if (wanted(name) && ELF64_ST_TYPE(entry.st_info) == STT_FUNC && entry.st_size > 0) {
      functions.push_back({name, entry.st_value, ELF64_ST_BIND(entry.st_info) != STB_LOCAL,
                           bytes_at(entry.st_value, entry.st_size)});
    }
  }
  return functions;
}

std::set<std::string> ElfFile::called_by_own_functions() const {
  std::set<std::string> called;
  const Symbols libraries = symbols(SHT_DYNSYM);
  for (const auto& entry : libraries.entries) {
    if (entry.st_shndx == SHN_UNDEF) {
      called.insert(name_of(libraries, entry));
    }
  }
  std::multimap<std::uint64_t, std::string> places;
  const Symbols table = symbols(SHT_SYMTAB);
  for (const auto& entry : table.entries) {
    if (ELF64_ST_TYPE(entry.st_info) == STT_FUNC) {
      places.emplace(entry.st_value, name_of(table, entry));
    }
  }
  places.erase(0);
  for (const auto& function : own_functions()) {
    for (std::size_t place = 0; place < function.code.size(); ++place) {
      const auto [first, last] = places.equal_range(called_at(header_.e_machine, function, place));
      for (auto name = first; name != last; ++name) {
        called.insert(name->second);
      }
    }
  }
  return called;
}

ElfFile::Symbols ElfFile::symbols(ElfW(Word) section_type) const {
  for (const auto& section : sections_) {
    if (section.sh_type == section_type) {
      return {records<Symbol>(bytes_, section.sh_offset, section.sh_size / sizeof(Symbol)),
              sections_.at(section.sh_link).sh_offset};
    }
  }
  return {};
}

std::string ElfFile::name_of(const Symbols& symbols, const Symbol& entry) const {
  return bytes_.c_str() + symbols.names + entry.st_name;
}

std::string ElfFile::bytes_at(std::uint64_t address, std::uint64_t size) const {
  for (const auto& each : segments_) {
    if (each.p_type == PT_LOAD && address >= each.p_vaddr &&
        address + size <= each.p_vaddr + each.p_filesz) {
      return bytes_.substr(each.p_offset + (address - each.p_vaddr), size);
    }
  }
  ADD_FAILURE() << "nothing is loaded to " << address;
  return {};
}

}  // namespace velun::test
