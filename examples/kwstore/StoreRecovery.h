// StoreRecovery: takes away what a kill in the middle of a write leaves at the end of the journal.
//
// The system may take part of a write only, when its process is killed. The record at that place was not answered
// yet. Whatever else is wrong with a journal is damage and left to kwdb.
#pragma once

#include <cstdint>
#include <string>

class StoreRecovery {
public:
    // Cuts a record that is begun and not finished from the journal of the database `name` in `folder`, which must not
    // be open, and keeps its bytes in the journal's name with ".torn". Logs one line when it did, and when it could
    // not. `maxRecord`: bytes of the largest record.
    static void CutTornEnd(const std::string& folder, const std::string& name, std::uint64_t maxRecord);
};
