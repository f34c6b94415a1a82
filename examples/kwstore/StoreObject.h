// StoreObject: an object of the store: fields by name, and where the data files have it, if they do.
//
// Thread-safety: none; the main thread owns it.
#pragma once

#include <Kw/Kw.h>

#include "StoreCodec.h"

// An entry of the data files; -1, 0, 0 for none.
struct StorePlace {
    int file = -1;
    unsigned int offset = 0;
    unsigned int size = 0;
};

// A node of whoever watches the store's objects.
class StoreObject : public CKwDBRTObject, public KwNode {
public:
    KW_TRACKED_NEW

    StoreFields fields;
    StorePlace place;
};

// Learns of changes as they are made in memory.
class StoreWatch {
public:
    // It is new, or its fields may have changed.
    virtual void OnSet(StoreObject& object) = 0;
    // It is no longer found.
    virtual void OnDelete(StoreObject& object) = 0;

protected:
    ~StoreWatch() = default;
};
