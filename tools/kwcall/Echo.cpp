#include <cstdio>

#include <Kw/Kw.h>

#include "common/ToolError.h"
#include "kwcall/Commands.h"
#include "kwcall/Request.h"

namespace {

class Answerer final : public ICBNetServer {
public:
    void OnPacket(CNetConnect* connect, const unsigned char*, unsigned int) override {
        static constexpr unsigned char kDone[kAnswerHeader] = {kLast, kAnswerHeader, 0, 0};
        connect->Send(kDone, sizeof(kDone));
    }
};

}  // namespace

int Echo(const SNetServerSettings& settings) {
    Answerer answerer;
    CNetWorkManager manager;
    CNetServer* const server = manager.Init() ? manager.Listen(settings, &answerer) : nullptr;
    if (server == nullptr) throw ToolError("cannot listen at " + settings.address);
    std::printf("answers at %s port %u\n", settings.address.c_str(), unsigned{server->GetPort()});
    std::fflush(stdout);
    for (;;) manager.Pump(1000);
}
