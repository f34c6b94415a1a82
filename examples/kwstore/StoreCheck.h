// StoreCheck: walks the files of an open store and compares them with its objects.
#pragma once

#include <string>

#include "StoreDB.h"

class StoreCheck {
public:
    // What is queued has been written before. Appends a line for each file, and one for each fault; true when
    // there is none.
    static bool Run(StoreDB& db, std::string& out);
};
