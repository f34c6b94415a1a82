// KwDataFile: how the loaders of documents and tables read their files. Internal.
#pragma once

#include <memory>
#include <string>

#include "Kw/KwBuffer.h"
#include "Kw/Res/KwParseError.h"
#include "Kw/Res/KwRes.h"
#include "Kw/Res/KwStreamShare.h"

class KwDataFile {
public:
    // Hands the content of the file at `path` to `load`, in a buffer of `stream` unless that is null. False, without a
    // call, when the file cannot be read.
    template <typename Load>
    static bool Read(const char* path, KwStreamShare* stream, Load load) {
        if (stream != nullptr) {
            KwBuffer* buffer = stream->Open(path);
            if (buffer == nullptr) return false;
            load(*buffer);
            stream->FreeBuffer(buffer);
            return true;
        }
        KwBuffer buffer;
        if (!KwRes::ReadFileToBufferAndResize(path, &buffer, 0, 0)) return false;
        load(buffer);
        return true;
    }

    static std::unique_ptr<KwParseError> NotRead(const char* path) {
        auto error = std::make_unique<KwParseError>();
        error->message = std::string("cannot read file ") + (path != nullptr ? path : "");
        return error;
    }
};
