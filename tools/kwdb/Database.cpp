#include "kwdb/Database.h"

#include <algorithm>
#include <cstring>

Database::Database(const std::string& directory, const std::string& name, KwDBFiles& files) : files_(files) {
    if (name.empty() || name.find_first_of("\\/") != std::string::npos) {
        throw ToolError("\"" + name + "\" is no name of a database");
    }
    // With the separator that the person uses: the paths are printed.
    const bool separated = !directory.empty() && (directory.back() == '/' || directory.back() == '\\');
    names_.Init(separated ? directory : directory + "/", name);
    if (ListJournals().empty() && ListLog("logdat").empty() && ListLog("log").empty() && ListData().empty()) {
        throw ToolError(directory + ": no database \"" + name + "\" there");
    }
}

void Database::ThrowUnread() const {
    throw ToolError(names_.GetDirectory() + ": the folder cannot be read");
}

std::vector<std::string> Database::ListJournals() const {
    std::vector<std::string> paths;
    std::vector<unsigned int> numbers;
    if (!names_.ListAside(files_, numbers)) ThrowUnread();
    for (const unsigned int number : numbers) paths.push_back(names_.GetAside(number));
    if (files_.Exists(names_.GetJournal())) paths.push_back(names_.GetJournal());
    return paths;
}

std::vector<std::string> Database::ListLog(const char* extension) const {
    std::vector<std::string> paths;
    std::vector<unsigned int> numbers;
    if (!names_.ListEarlier(files_, extension, numbers)) ThrowUnread();
    for (const unsigned int number : numbers) {
        paths.push_back(names_.GetFile(extension, static_cast<int>(number)));
    }
    if (files_.Exists(names_.GetFile(extension))) paths.push_back(names_.GetFile(extension));
    return paths;
}

std::vector<int> Database::ListData() const {
    std::vector<int> numbers;
    std::vector<unsigned int> later;
    if (files_.Exists(names_.GetFile("dat"))) numbers.push_back(0);
    if (!names_.ListEarlier(files_, "dat", later)) ThrowUnread();
    for (const unsigned int number : later) numbers.push_back(static_cast<int>(number));
    return numbers;
}

std::unique_ptr<KwDBFile> Database::Open(const std::string& path) const {
    std::unique_ptr<KwDBFile> file = files_.Open(path, false);
    if (file == nullptr) throw ToolError(path + ": the file cannot be opened");
    return file;
}

std::uint64_t Database::GetSize(const std::vector<std::string>& paths) const {
    std::uint64_t size = 0;
    for (const std::string& path : paths) size += Open(path)->GetSize();
    return size;
}

Behind LookBehind(KwDBFile& file, std::uint64_t offset) {
    constexpr std::size_t kPiece = 1u << 20;
    // A header that begins near the end of a piece is looked at in the next one.
    constexpr std::size_t kOverlap = KwDBRTRecord::kHeaderSize - 1;
    const std::uint64_t size = file.GetSize();
    std::vector<unsigned char> piece(static_cast<std::size_t>(std::min<std::uint64_t>(kPiece, size - offset)));
    Behind behind;
    for (std::uint64_t at = offset; at < size;) {
        const std::size_t wanted = static_cast<std::size_t>(std::min<std::uint64_t>(kPiece, size - at));
        const std::size_t count = file.Read(at, piece.data(), wanted);
        if (count == 0) break;
        if (std::any_of(piece.begin(), piece.begin() + static_cast<std::ptrdiff_t>(count),
                        [](unsigned char byte) { return byte != 0; })) {
            behind.zeros = false;
        }
        const bool last = count < kPiece;
        const std::size_t limit = last ? count : count - kOverlap;
        std::uint64_t next = last ? size : at + limit;
        for (std::size_t i = 0; i < limit;) {
            const void* found = std::memchr(piece.data() + i, KwDBRTRecord::kMagic & 0xFF, limit - i);
            if (found == nullptr) break;
            i = static_cast<std::size_t>(static_cast<const unsigned char*>(found) - piece.data());
            KwDBRTRecord record;
            const KwDBRTRecord::State state = KwDBRTRecord::Parse(piece.data() + i, count - i, record);
            const bool header = state == KwDBRTRecord::State::kCut && count - i >= KwDBRTRecord::kHeaderSize;
            if (state != KwDBRTRecord::State::kWhole && !(header && record.GetTotal() <= size - at - i)) {
                ++i;
                continue;
            }
            ++behind.records;
            if (record.GetTotal() > limit - i) {
                next = at + i + record.GetTotal();
                break;
            }
            i += static_cast<std::size_t>(record.GetTotal());
        }
        at = next;
    }
    return behind;
}

std::string Walk::CountText() const {
    return std::to_string(GetRecords()) + " records (" + std::to_string(logins) + " login, " + std::to_string(commits) +
           " commit, " + std::to_string(data) + " data)";
}

std::string Walk::DamageText() const {
    return "damaged at offset " + std::to_string(whole) + ": " + damage + "; " + std::to_string(size - whole) +
           " bytes from there on, " +
           (behind.zeros ? "all of them zero" : std::to_string(behind.records) + " records among them");
}

Walk WalkRecords(KwDBFile& file, const std::string& path, const std::function<void(KwDBRTReader&)>& each) {
    Walk walk;
    walk.size = file.GetSize();
    KwDBRTReader reader(file);
    while (reader.Next()) {
        const unsigned char type = reader.GetRecord().type;
        ++(type == KwDBRTRecord::kData ? walk.data : type == KwDBRTRecord::kCommit ? walk.commits : walk.logins);
        each(reader);
    }
    walk.whole = reader.GetOffset();
    if (reader.IsReadError()) {
        throw ToolError(path + ": the file cannot be read at offset " + std::to_string(walk.whole));
    }
    if (reader.GetState() != KwDBRTRecord::State::kWhole) {
        walk.damage = KwDBRTRecord::Describe(reader.GetState());
        walk.behind = LookBehind(file, walk.whole);
    }
    return walk;
}

TextWalk WalkText(KwDBFile& file, const std::string& path, const std::function<void(std::uint64_t)>& progress) {
    TextWalk walk;
    walk.size = file.GetSize();
    std::vector<char> piece(static_cast<std::size_t>(std::min<std::uint64_t>(walk.size, 1u << 20)));
    std::uint64_t firstZero = walk.size;  // of the zero bytes at the end
    for (std::uint64_t at = 0; at < walk.size;) {
        const std::size_t wanted = static_cast<std::size_t>(std::min<std::uint64_t>(piece.size(), walk.size - at));
        if (file.Read(at, piece.data(), wanted) != wanted) {
            throw ToolError(path + ": the file cannot be read at offset " + std::to_string(at));
        }
        for (std::size_t i = 0; i < wanted; ++i) {
            if (piece[i] == '\n') {
                ++walk.lines;
                walk.whole = at + i + 1;
            }
            if (piece[i] != '\0') {
                firstZero = walk.size;
            } else if (firstZero == walk.size) {
                firstZero = at + i;
            }
        }
        at += wanted;
        progress(at);
    }
    if (firstZero != walk.size) {
        walk.damage = "damaged at offset " + std::to_string(firstZero) + ": only zero bytes from there on";
    } else if (walk.whole != walk.size) {
        walk.damage = "damaged at offset " + std::to_string(walk.whole) + ": the last line is cut";
    }
    return walk;
}
