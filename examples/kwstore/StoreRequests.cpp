#include "StoreRequests.h"

#include <cstring>

namespace {

constexpr std::size_t kHeader = 4;  // bytes: type, length, status
constexpr std::size_t kMaxText = 0xFFFF - kHeader;

// Takes as long for every text of that length.
bool IsSame(std::string_view given, const std::string& token) {
    unsigned int differs = given.size() == token.size() ? 0 : 1;
    for (std::size_t i = 0; i < given.size(); ++i) {
        differs |= static_cast<unsigned int>(given[i] ^ token[i % token.size()]) & 0xFF;
    }
    return differs == 0;
}

}  // namespace

// Answers -------------------------------------------------------------------------------------------------------

void StoreSession::Answer(StoreStatus status, std::string_view text) {
    unsigned char packet[kHeader + 1020];
    std::string large;
    bool more = true;
    while (more) {
        const std::string_view part = text.substr(0, kMaxText);
        text.remove_prefix(part.size());
        more = !text.empty();
        const std::size_t size = kHeader + part.size();
        unsigned char* out = packet;
        if (size > sizeof(packet)) {
            large.resize(size);
            out = reinterpret_cast<unsigned char*>(large.data());
        }
        out[0] = more ? StoreRequests::kMore : StoreRequests::kLast;
        out[1] = static_cast<unsigned char>(size & 0xFF);
        out[2] = static_cast<unsigned char>(size >> 8);
        out[3] = static_cast<unsigned char>(status);
        std::memcpy(out + kHeader, part.data(), part.size());
        SendPacket(out, static_cast<unsigned int>(size));
    }
}

// Requests ------------------------------------------------------------------------------------------------------

struct StoreRequests::Command {
    std::string_view name;
    unsigned int least;  // parameters
    unsigned int most;
    void (StoreRequests::*run)(StoreSource& to);
    std::string_view usage;
};

const StoreRequests::Command* StoreRequests::Find(std::string_view name) {
    static constexpr Command kCommands[] = {
        {"set", 2, 255, &StoreRequests::Set, "set NAME FIELD=VALUE...: changes fields; FIELD= takes one away"},
        {"get", 1, 1, &StoreRequests::Get, "get NAME: the fields of an object"},
        {"del", 1, 1, &StoreRequests::Delete, "del NAME: deletes an object"},
        {"find", 0, 1, &StoreRequests::List, "find [PREFIX]: the names that begin so"},
        {"count", 0, 0, &StoreRequests::Count, "count: the number of objects"},
        {"import", 1, 1, &StoreRequests::Import, "import TABLE: an object for each row of a table"},
        {"db.save", 0, 0, &StoreRequests::Save, "db.save: writes a snapshot and empties the journal"},
        {"db.stat", 0, 0, &StoreRequests::Stat, "db.stat: the store's counters"},
        {"db.check", 0, 0, &StoreRequests::Check, "db.check: checks the store's files"},
        {"help", 0, 0, &StoreRequests::Help, "help: these lines"},
        {"", 0, 0, nullptr, ""},
    };
    const Command* command = kCommands;
    if (name.empty()) return command;
    while (command->run != nullptr && command->name != name) ++command;
    return command->run == nullptr ? nullptr : command;
}

StoreRequests::Next StoreRequests::Take(StoreSession& from, const unsigned char* packet, unsigned int size) {
    // Every packet counts its length; another type or parts that do not fit it are no request of ours.
    if (!view_.Read(packet, size) || view_.GetType() != kRequest) {
        KwLogSystem::Push("connection of %s ended: a packet of type %u and %u bytes is no request",
                          from.GetPeer().c_str(), size == 0 ? 0u : unsigned{packet[0]}, size);
        return Next::kCut;
    }
    if (commands_.GetAnswers().GetWaiting() >= kMostWaiting) {
        KwLogSystem::Push("connection of %s ended: the disk takes nothing, and too many answers wait",
                          from.GetPeer().c_str());
        return Next::kCut;
    }
    if ((!from.isAllowed_ && !token_.empty()) || view_.GetCommand() == "auth") return Authorise(from);
    const Command* const command = Find(view_.GetCommand());
    if (command == nullptr) {
        Refuse(from);
    } else if (view_.GetCount() < command->least || view_.GetCount() > command->most) {
        commands_.Say(from, StoreStatus::kError, "usage: " + std::string(command->usage));
    } else {
        (this->*command->run)(from);
    }
    return Next::kGoOn;
}

StoreRequests::Next StoreRequests::Authorise(StoreSession& from) {
    const bool isAuth = view_.GetCommand() == "auth" && view_.GetCount() == 1;
    if (isAuth && (token_.empty() || IsSame(view_.GetParam(0), token_))) {
        from.isAllowed_ = true;
        commands_.Say(from, StoreStatus::kDone, token_.empty() ? "no token is needed" : "welcome");
        return Next::kGoOn;
    }
    if (from.isAllowed_ || token_.empty()) {
        commands_.Say(from, StoreStatus::kError, isAuth ? "error: another token" : "usage: auth TOKEN");
        return Next::kGoOn;
    }
    KwLogSystem::Push("connection of %s refused: %s", from.GetPeer().c_str(), isAuth ? "a wrong token" : "no token");
    commands_.Say(from, StoreStatus::kRefused, isAuth ? "the token is wrong" : "the first request is auth TOKEN");
    return Next::kEnd;
}

void StoreRequests::Refuse(StoreSource& to) {
    name_.assign(view_.GetCommand());
    const bool isConsole = console_ != nullptr && console_->FindCommand(name_) != nullptr;
    commands_.Say(to, StoreStatus::kRefused,
                  isConsole ? "\"" + name_ + "\" is answered at the console only"
                            : "no command \"" + name_ + "\"; help shows them");
}

const std::string& StoreRequests::Name(unsigned int index) {
    name_.assign(view_.GetParam(index));
    return name_;
}

// A parameter =MORE goes on with the value before it, which may be longer than a parameter.
void StoreRequests::Set(StoreSource& to) {
    changes_.clear();
    values_.clear();
    std::size_t start = 0;  // in values_, of the value that was put together last
    for (unsigned int i = 1; i < view_.GetCount(); ++i) {
        const std::string_view param = view_.GetParam(i);
        const std::size_t equals = param.find('=');
        if (equals == std::string_view::npos || (equals == 0 && changes_.empty())) {
            return commands_.Say(to, StoreStatus::kError,
                                 "usage: set NAME FIELD=VALUE...; =MORE goes on with the value before it");
        }
        const std::string_view value = param.substr(equals + 1);
        if (equals != 0) {
            changes_.push_back({param.substr(0, equals), value});
            continue;
        }
        // All of them fit into the packet: nothing moves later.
        values_.reserve(0xFFFF);
        std::string_view& whole = changes_.back().value;
        if (values_.empty() || whole.data() != values_.data() + start || whole.empty()) {
            start = values_.size();
            values_.append(whole);
        }
        values_.append(value);
        whole = std::string_view(values_).substr(start);
    }
    commands_.Set(to, Name(0), changes_);
}

void StoreRequests::Get(StoreSource& to) {
    commands_.Get(to, Name(0));
}

void StoreRequests::Delete(StoreSource& to) {
    commands_.Delete(to, Name(0));
}

void StoreRequests::List(StoreSource& to) {
    commands_.Find(to, Name(0));
}

void StoreRequests::Count(StoreSource& to) {
    commands_.Count(to);
}

void StoreRequests::Import(StoreSource& to) {
    commands_.Import(to, Name(0));
}

void StoreRequests::Save(StoreSource& to) {
    commands_.Save(to);
}

void StoreRequests::Stat(StoreSource& to) {
    commands_.Stat(to);
}

void StoreRequests::Check(StoreSource& to) {
    commands_.Check(to);
}

void StoreRequests::Help(StoreSource& to) {
    std::string text;
    for (const Command* command = Find({}); command->run != nullptr; ++command)
        text.append(command->usage).append("\n");
    commands_.Say(to, StoreStatus::kDone, text + "auth TOKEN: first of all where a token is needed");
}
