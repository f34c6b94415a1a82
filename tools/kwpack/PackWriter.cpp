#include "kwpack/PackWriter.h"

#include <algorithm>

#include "Kw/DB/KwDBFiles.h"
#include "Kw/Res/KwNrv2b.h"
#include "common/ToolError.h"
#include "kwpack/PackNames.h"

namespace {

using Bytes = std::vector<unsigned char>;

bool Unpacks(const Bytes& packed, const Bytes& data) {
    Bytes out(data.size());
    return KwNrv2bUnpack(packed.data(), static_cast<unsigned int>(packed.size()), out.data(),
                         static_cast<unsigned int>(out.size())) &&
           out == data;
}

}  // namespace

PackBody MakeBody(const std::string& name, Bytes data, PackMethod method, int level) {
    if (data.size() > kNrv2bMaxSize) throw ToolError(Printable(name) + ": the file is too large for a pack");
    PackBody body;
    body.unpackedSize = static_cast<unsigned int>(data.size());
    Bytes packed;
    if (method != PackMethod::kStored && !data.empty() && KwNrv2bPack(data.data(), body.unpackedSize, packed, level) &&
        (method == PackMethod::kNrv2b || packed.size() < data.size()) && Unpacks(packed, data)) {
        body.method = KwPackLayout::kMethodNrv2b;
        data.swap(packed);
    }
    if (data.size() > KwPackLayout::kMaxStored) {
        throw ToolError(Printable(name) + ": its " + std::to_string(data.size()) +
                        " bytes in the pack do not fit the 24 bits of a stored size (" +
                        std::to_string(KwPackLayout::kMaxStored) + ")");
    }
    body.bytes.swap(data);
    return body;
}

PackWriter::PackWriter(const std::string& path) : path_(path), fresh_(path + ".kwpack-new") {
    if (!file_.Create(fresh_.c_str())) throw ToolError(fresh_ + ": the file cannot be made");
    // What is not written yet: the header.
    const Bytes header(KwPackLayout::kHeaderSize);
    try {
        Write(header.data(), header.size());
    } catch (...) {
        file_.Close();
        KwDBFiles::GetDisk()->Remove(fresh_);
        throw;
    }
}

PackWriter::~PackWriter() {
    if (fresh_.empty()) return;
    file_.Close();
    KwDBFiles::GetDisk()->Remove(fresh_);
}

void PackWriter::Add(unsigned int hash, const PackBody& body) {
    KwPackLayout::Entry entry;
    entry.hash = hash;
    entry.offset = static_cast<unsigned int>(size_);
    entry.unpackedSize = body.unpackedSize;
    entry.word = static_cast<unsigned int>(body.bytes.size()) | body.method;
    Write(body.bytes.data(), body.bytes.size());
    entries_.push_back(entry);
}

void PackWriter::Commit(bool split) {
    std::sort(entries_.begin(), entries_.end(), [](const auto& a, const auto& b) { return a.hash < b.hash; });
    KwPackLayout::Header header;
    header.split = split;
    header.count = static_cast<unsigned int>(entries_.size());
    header.directory = static_cast<unsigned int>(size_);
    header.further = KwPackLayout::kHeaderSize;
    Bytes bytes(entries_.size() * KwPackLayout::kEntrySize);
    unsigned char* next = bytes.data();
    for (const KwPackLayout::Entry& entry : entries_) {
        KwPackLayout::EncodeEntry(entry, next);
        next += KwPackLayout::kEntrySize;
    }
    Write(bytes.data(), bytes.size());
    unsigned char head[KwPackLayout::kHeaderSize];
    KwPackLayout::Encode(header, head);
    if (file_.Seek(0, 0) != 0 || !file_.Write(head, sizeof(head)) || !file_.Flush(true) || !file_.Close()) Fail();
    KwDBFiles& files = *KwDBFiles::GetDisk();
    if (!files.Rename(fresh_, path_)) throw ToolError(path_ + ": the new file cannot be put in its place");
    fresh_.clear();
    const std::size_t slash = path_.find_last_of("/\\");
    const std::string folder = slash == std::string::npos ? "." : path_.substr(0, slash + 1);
    if (!files.SyncFolder(folder)) throw ToolError(folder + ": the folder cannot be flushed to the disk");
}

void PackWriter::Write(const void* data, std::size_t size) {
    if (size > KwFile::kMaxSize - size_) throw ToolError(path_ + ": a pack has less than 4 GiB; make several");
    if (size != 0 && !file_.Write(data, static_cast<unsigned int>(size))) Fail();
    size_ += size;
}

void PackWriter::Fail() const {
    throw ToolError(fresh_ + ": the file cannot be written");
}
