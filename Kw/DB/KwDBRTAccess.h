// CKwDBRT::Access: what the object and the writer of a runtime database need of its inside. Internal.
//
// A nested class and no friends: with friends, compilers would warn every host of the missing virtual destructor.
#pragma once

#include "Kw/DB/KwDBRT.h"
#include "Kw/DB/KwDBRTWriter.h"

class CKwDBRT::Access {
public:
    static KwBufferList& GetPool(CKwDBRT& db) { return db.pool_; }
    static KwDBRTWriter& GetWriter(CKwDBRT& db) { return *db.writer_; }
    static int GetMaxRecord(const CKwDBRT& db) { return db.maxRecord_; }
    static void Reserve(CKwDBRT& db, unsigned int length, int& fileNumber, unsigned int& offset) {
        db.Reserve(length, fileNumber, offset);
    }
    static void DecryptLog(CKwDBRT& db, double id, unsigned char* payload, unsigned int length, std::string& lines) {
        db.DecryptLog(id, payload, length, lines);
    }
    static void ForgetRemoved(CKwDBRTObject* object) { CKwDBRT::ForgetRemoved(object); }
};
