// What krv-panel-check needs to know of an ELF shared object, read from the file itself (a panel
// has no binutils): its dynamic section, the symbol versions it defines and needs, its dynamic
// symbols. Both classes and byte orders; nothing is loaded or run.
#pragma once

#include <string>
#include <vector>

namespace panel_check {

struct ElfVersionNeed {
    std::string file;     // the SONAME the version is needed from
    std::string version;  // e.g. GLIBCXX_3.4.21
};

struct ElfSymbol {
    std::string name;
    bool defined;
};

struct ElfFile {
    std::string path;
    bool is64 = false;
    unsigned machine = 0;
    std::string soname;
    std::vector<std::string> needed;
    std::vector<std::string> rpath, runpath;  // split at ':', $ORIGIN left as it is
    std::vector<std::string> versions;        // defined, the file's own base entry left out
    std::vector<ElfVersionNeed> versionNeeds;
    std::vector<ElfSymbol> symbols;  // the dynamic symbol table, without the null entry

    // False with `error` set when the file cannot be read or is no ELF object this reader knows.
    bool load(const std::string& file, std::string& error);
    bool definesVersion(const std::string& version) const;
};

}  // namespace panel_check
