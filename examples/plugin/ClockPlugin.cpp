// ClockPlugin: a plug-in of kwstore that tells the time, at once or again and again.
#include <cstdio>
#include <string>

#include <Kw/Kw.h>

#include "../kwstore/StorePlugin.h"

namespace {

class ClockPlugin : public KwInfLock, public KwEvent_Base {
public:
    KW_TRACKED_NEW

    explicit ClockPlugin(const StorePluginHost& host) : host_(host) {
        host_.commands->Add("clock.now", this, &ClockPlugin::OnNow, "the local time");
        host_.commands->Add("clock.every", this, &ClockPlugin::OnEvery, "SECONDS: tells the time so often, 0 ends it");
    }
    ~ClockPlugin() override {
        host_.commands->Remove("clock.now");
        host_.commands->Remove("clock.every");
    }
    ClockPlugin(const ClockPlugin&) = delete;
    ClockPlugin& operator=(const ClockPlugin&) = delete;

    // A pass of the store's main loop.
    bool OnEvent(void* param) override {
        tick_ = *static_cast<const unsigned int*>(param);
        if (interval_ == 0 || tick_ - last_ < interval_) return true;
        last_ = tick_;
        SayTime();
        return true;
    }

private:
    void OnNow(const std::string&, KwCmd*) { SayTime(); }
    void OnEvery(const std::string&, KwCmd* params) {
        const int seconds = params->GetInt(1, 0);
        if (seconds < 0 || seconds > 86400) return host_.say(host_, "usage: clock.every SECONDS, at most a day");
        interval_ = static_cast<unsigned int>(seconds) * 1000;
        last_ = tick_;
        const std::string text = "every " + std::to_string(seconds) + " seconds";
        host_.say(host_, seconds == 0 ? "no more" : text.c_str());
    }
    void SayTime() {
        STime now{};
        KwTime::GetCurTime(&now);
        char text[32];
        std::snprintf(text, sizeof(text), "%04d-%02d-%02d %02d:%02d:%02d", now.year, now.month, now.day, now.hour,
                      now.minute, now.second);
        host_.say(host_, text);
    }

    const StorePluginHost host_;
    unsigned int tick_ = 0;      // ms
    unsigned int last_ = 0;      // ms
    unsigned int interval_ = 0;  // ms; 0: never
};

}  // namespace

extern "C" KW_PLUGIN void StorePluginEntry(void* param) {
    auto* const host = static_cast<StorePluginHost*>(param);
    if (host->version == StorePluginHost::kVersion) host->plugin = new ClockPlugin(*host);
}
