// What the commands print with --json. A name that is no UTF-8 shows U+FFFD in its place: its hash tells which it is.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

#include "kwpack/Pack.h"
#include "kwpack/PackNames.h"

using Json = nlohmann::ordered_json;

inline std::string ToLine(const Json& json) {
    return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

inline Json ToJson(const Pack::Entry& entry) {
    Json json;
    json["name"] = entry.name.empty() ? Json() : Json(entry.name);
    json["hash"] = HashText(entry.item->hash);
    json["method"] = Pack::GetMethodName(*entry.item);
    json["offset"] = entry.item->offset;
    json["stored"] = entry.item->storedSize;
    json["unpacked"] = entry.item->unpackedSize;
    return json;
}
