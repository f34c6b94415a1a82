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

class StoreObject : public CKwDBRTObject {
public:
    StoreFields fields;
    StorePlace place;
};
