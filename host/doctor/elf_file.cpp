// SPDX-License-Identifier: Apache-2.0
#include "host/doctor/elf_file.h"

#include <gelf.h>
#include <string.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <memory>

#include "host/error.h"

namespace krel::host::doctor {
namespace {

/// Empty when the file cannot be read.
std::string read_file(const std::filesystem::path& path) {
    std::ifstream stream(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

struct ElfEnd {
    void operator()(Elf* elf) const { elf_end(elf); }
};
using ElfHandle = std::unique_ptr<Elf, ElfEnd>;

std::string text_at(Elf* elf, const GElf_Shdr& header, size_t offset) {
    const char* text = elf_strptr(elf, header.sh_link, offset);
    return text == nullptr ? "" : text;
}

void read_segments(Elf* elf, ElfFile& file) {
    size_t count = 0;
    elf_getphdrnum(elf, &count);
    file.smallest_alignment = UINT64_MAX;
    GElf_Phdr segment;
    for (size_t i = 0; i < count; ++i) {
        if (gelf_getphdr(elf, static_cast<int>(i), &segment) == nullptr) break;
        if (segment.p_type != PT_LOAD) continue;
        file.smallest_alignment = std::min(file.smallest_alignment, segment.p_align);
    }
}

void read_dynamic(Elf* elf, Elf_Data* data, const GElf_Shdr& header, ElfFile& file) {
    GElf_Dyn entry;
    for (int i = 0; gelf_getdyn(data, i, &entry) != nullptr; ++i) {
        if (entry.d_tag == DT_NEEDED) file.needed.push_back(text_at(elf, header, entry.d_un.d_val));
        file.text_relocations |= entry.d_tag == DT_TEXTREL ||
                                 (entry.d_tag == DT_FLAGS && (entry.d_un.d_val & DF_TEXTREL) != 0);
    }
}

/// The two words at an address of the loaded file, as they stand in the file.
std::optional<std::pair<uint32_t, uint32_t>> words_at(Elf* elf, uint64_t address) {
    size_t size = 0;
    const char* bytes = elf_rawfile(elf, &size);
    size_t count = 0;
    elf_getphdrnum(elf, &count);
    GElf_Phdr segment;
    for (size_t i = 0; i < count; ++i) {
        if (gelf_getphdr(elf, static_cast<int>(i), &segment) == nullptr) break;
        if (segment.p_type != PT_LOAD || address < segment.p_vaddr) continue;
        const uint64_t inside = address - segment.p_vaddr;
        uint32_t words[2];
        if (inside >= segment.p_filesz || segment.p_filesz - inside < sizeof words) continue;
        if (segment.p_offset > size || size - segment.p_offset < sizeof words) continue;
        if (size - segment.p_offset - sizeof words < inside) continue;
        memcpy(words, bytes + segment.p_offset + inside, sizeof words);
        return std::pair(words[0], words[1]);
    }
    return std::nullopt;
}

void read_symbols(Elf* elf, Elf_Data* data, const GElf_Shdr& header, ElfFile& file) {
    GElf_Sym symbol;
    for (int i = 1; gelf_getsym(data, i, &symbol) != nullptr; ++i) {
        const std::string name = text_at(elf, header, symbol.st_name);
        if (symbol.st_shndx != SHN_UNDEF) {
            file.exported.push_back(name);
            if (name == "AELI") file.effect_library = words_at(elf, symbol.st_value);
        } else if (GELF_ST_BIND(symbol.st_info) != STB_WEAK) {
            file.imported.push_back(name);
        }
    }
}

void read_sections(Elf* elf, ElfFile& file) {
    for (Elf_Scn* section = elf_nextscn(elf, nullptr); section != nullptr;
         section = elf_nextscn(elf, section)) {
        GElf_Shdr header;
        Elf_Data* data = elf_getdata(section, nullptr);
        if (gelf_getshdr(section, &header) == nullptr || data == nullptr) continue;
        if (header.sh_type == SHT_DYNAMIC) read_dynamic(elf, data, header, file);
        if (header.sh_type == SHT_DYNSYM) read_symbols(elf, data, header, file);
    }
}

}  // namespace

ElfFile read_elf(const std::filesystem::path& path) {
    elf_version(EV_CURRENT);
    std::string bytes = read_file(path);
    const ElfHandle elf(elf_memory(bytes.data(), bytes.size()));
    GElf_Ehdr header;
    if (!elf || elf_kind(elf.get()) != ELF_K_ELF || gelf_getehdr(elf.get(), &header) == nullptr ||
        header.e_type != ET_DYN) {
        throw Error("no shared ELF file");
    }
    ElfFile file;
    file.bits = gelf_getclass(elf.get()) == ELFCLASS64 ? 64 : 32;
    file.machine = header.e_machine;
    file.flags = header.e_flags;
    read_segments(elf.get(), file);
    read_sections(elf.get(), file);
    if (file.imported.empty() && file.exported.empty()) throw Error("cut off: it has no symbols");
    return file;
}

std::string machine_name(const ElfFile& file) {
    static constexpr std::pair<int, const char*> kNames[] = {
            {EM_ARM, "arm"}, {EM_AARCH64, "arm64"}, {EM_386, "x86"}, {EM_X86_64, "x86-64"}};
    const auto* found =
            std::ranges::find(kNames, file.machine, &std::pair<int, const char*>::first);
    const std::string name = found == std::end(kNames) ? "of another machine" : found->second;
    return std::to_string(file.bits) + "-bit " + name;
}

}  // namespace krel::host::doctor
