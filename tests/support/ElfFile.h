#pragma once

#include <elf.h>

#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

/// A program or library of this machine's kind, as far as the loader reads it.
class ElfFile {
 public:
  explicit ElfFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    bytes_.assign(std::istreambuf_iterator<char>(file), {});
    if (!isElf()) return;
    const auto header = at<Elf64_Ehdr>(0);
    for (unsigned each = 0; each < header.e_phnum; ++each) {
      segments_.push_back(at<Elf64_Phdr>(header.e_phoff + each * sizeof(Elf64_Phdr)));
    }
  }

  [[nodiscard]] bool isElf() const { return bytes_.starts_with(ELFMAG) && bytes_.size() > 64; }

  /// Whether the loader puts it at an address of its own choice: a library, or a program so linked.
  [[nodiscard]] bool isPositionIndependent() const { return at<Elf64_Ehdr>(0).e_type == ET_DYN; }

  /// Whether every symbol is bound at the start, after which the table of them can be sealed.
  [[nodiscard]] bool isBoundAtStart() const {
    return (valueOf(DT_FLAGS) & DF_BIND_NOW) != 0 || (valueOf(DT_FLAGS_1) & DF_1_NOW) != 0;
  }

  [[nodiscard]] bool mentions(const std::string& symbol) const {
    return bytes_.find('\0' + symbol + '\0') != bytes_.npos;
  }

  /// The folders in which libraries are looked for before the system's, empty ones included.
  [[nodiscard]] std::vector<std::string> searchFolders() const {
    std::vector<std::string> folders;
    for (const Elf64_Sxword tag : {Elf64_Sxword{DT_RUNPATH}, Elf64_Sxword{DT_RPATH}}) {
      if (!holds(tag)) continue;
      const std::string path = bytes_.c_str() + offsetOf(valueOf(DT_STRTAB)) + valueOf(tag);
      std::size_t begin = 0;
      for (std::size_t end; (end = path.find(':', begin)) != path.npos; begin = end + 1) {
        folders.push_back(path.substr(begin, end - begin));
      }
      folders.push_back(path.substr(begin));
    }
    return folders;
  }

 private:
  template <typename Part>
  [[nodiscard]] Part at(std::size_t offset) const {
    Part part{};
    if (offset + sizeof part <= bytes_.size())
      std::memcpy(&part, bytes_.data() + offset, sizeof part);
    return part;
  }

  [[nodiscard]] const Elf64_Dyn* find(Elf64_Sxword tag, Elf64_Dyn& found) const {
    for (const Elf64_Phdr& segment : segments_) {
      if (segment.p_type != PT_DYNAMIC) continue;
      for (std::size_t each = 0; each < segment.p_filesz; each += sizeof found) {
        found = at<Elf64_Dyn>(segment.p_offset + each);
        if (found.d_tag == tag) return &found;
      }
    }
    return nullptr;
  }

  [[nodiscard]] bool holds(Elf64_Sxword tag) const {
    Elf64_Dyn found{};
    return find(tag, found) != nullptr;
  }

  [[nodiscard]] Elf64_Xword valueOf(Elf64_Sxword tag) const {
    Elf64_Dyn found{};
    return find(tag, found) ? found.d_un.d_val : 0;
  }

  [[nodiscard]] std::size_t offsetOf(Elf64_Addr address) const {
    for (const Elf64_Phdr& segment : segments_) {
      const bool isIn = address >= segment.p_vaddr && address < segment.p_vaddr + segment.p_filesz;
      if (segment.p_type == PT_LOAD && isIn) return address - segment.p_vaddr + segment.p_offset;
    }
    return 0;
  }

  std::string bytes_;
  std::vector<Elf64_Phdr> segments_;
};
