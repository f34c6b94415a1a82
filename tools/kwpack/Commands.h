// The commands of kwpack. Each prints to standard output and gives the exit code: 0 when all is well, 1 when the pack
// is damaged or an entry could not be given out. They throw ToolError.
#pragma once

#include <string>
#include <vector>

#include "kwpack/PackWriter.h"

struct CreateOptions {
    bool split = false;
    bool names = true;  // with the entry of names
    PackMethod method = PackMethod::kAuto;
    int level = 7;    // of NRV2B, 1 to 10
    int threads = 0;  // that compress; 0: one a processor
    bool json = false;
};
// Packs all files below a folder.
int Create(const std::string& folder, const std::string& pack, const CreateOptions& options);

int List(const std::string& pack, bool json);
int Verify(const std::string& pack, unsigned int limit, bool json);

// `names`: files as `list` shows them, or "hash:1a2b3c4d"; none: all. `limit` is the largest unpacked size, in bytes.
int Extract(const std::string& pack, const std::string& folder, const std::vector<std::string>& names,
            unsigned int limit, bool replace, bool json);
// To standard output, one behind the other.
int Cat(const std::string& pack, const std::vector<std::string>& names, unsigned int limit);
