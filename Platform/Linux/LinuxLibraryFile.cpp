#include "Platform/LibraryFile.h"

#include <QByteArray>
#include <QFile>

#include <algorithm>
#include <cstring>
#include <optional>
#include <vector>

#include <elf.h>
#include <link.h>

// Types and names are those of <elf.h>, in the width of this process.
namespace {

using FileHeader = ElfW(Ehdr);
using Segment = ElfW(Phdr);
using Section = ElfW(Shdr);

/// Structures of a file, each read whole or not at all.
class ElfFile {
public:
    explicit ElfFile(const QString &path)
        : file_(path) { }

    bool open() { return file_.open(QIODevice::ReadOnly); }

    bool holds(quint64 offset, quint64 length) const {
        const auto size = static_cast<quint64>(file_.size());
        return offset <= size && length <= size - offset;
    }

    /// So many of them, one behind another.
    template <class Structure>
    std::optional<std::vector<Structure>> read(quint64 offset, std::size_t count) {
        const auto length = count * sizeof(Structure);
        if (!holds(offset, length) || !file_.seek(static_cast<qint64>(offset)))
            return std::nullopt;
        const auto bytes = file_.read(static_cast<qint64>(length));
        if (bytes.size() != static_cast<qsizetype>(length))
            return std::nullopt;
        std::vector<Structure> structures(count);
        std::memcpy(structures.data(), bytes.constData(), length);
        return structures;
    }

private:
    QFile file_;
};

std::optional<FileHeader> fileHeader(ElfFile &file) {
    const auto headers = file.open() ? file.read<FileHeader>(0, 1) : std::nullopt;
    return headers ? std::optional(headers->front()) : std::nullopt;
}

// The kind of this process is that of its own program.
bool isOfThisKind(const FileHeader &header) {
    ElfFile program(QStringLiteral("/proc/self/exe"));
    const auto own = fileHeader(program);
    // Magic, width, order of bytes and version of the format stand in the first seven bytes.
    return own && std::memcmp(header.e_ident, own->e_ident, EI_OSABI) == 0
        && header.e_machine == own->e_machine && header.e_type == ET_DYN;
}

bool hasItsSegments(ElfFile &file, const FileHeader &header) {
    if (header.e_phnum == 0 || header.e_phentsize != sizeof(Segment))
        return false;
    const auto segments = file.read<Segment>(header.e_phoff, header.e_phnum);
    return segments && std::all_of(segments->begin(), segments->end(), [&file](const Segment &segment) {
        return segment.p_type == PT_NULL || file.holds(segment.p_offset, segment.p_filesz);
    });
}

// They stand at the end of most files, and nothing that runs needs them: a file may have none.
bool hasItsSections(ElfFile &file, const FileHeader &header) {
    if (header.e_shoff == 0)
        return true;
    if (header.e_shentsize != sizeof(Section))
        return false;
    const auto sections = file.read<Section>(header.e_shoff, header.e_shnum);
    return sections && std::all_of(sections->begin(), sections->end(), [&file](const Section &section) {
        return section.sh_type == SHT_NULL || section.sh_type == SHT_NOBITS
            || file.holds(section.sh_offset, section.sh_size);
    });
}

} // namespace

bool LibraryFile::isWhole(const QString &path) {
    ElfFile file(path);
    const auto header = fileHeader(file);
    return header && isOfThisKind(*header) && hasItsSegments(file, *header) && hasItsSections(file, *header);
}
