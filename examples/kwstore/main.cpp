// kwstore: a named-object server on Kw. Usage: kwstore [CONFIGURATION]
// The configuration is a data-script document; without one, kwstore.ds beside the program.
#include <cstdio>
#include <string>
#include <vector>

#include "StoreApp.h"

namespace {

// Says where and why a configuration does not load; true when it does.
bool Check(const std::string& path) {
    KwDS document;
    if (document.Init(path.c_str(), nullptr)) return true;
    const KwParseError& error = document.GetParseError();
    if (error.line > 0) {
        std::fprintf(stderr, "kwstore: %s:%d:%d: %s\n", path.c_str(), error.line, error.column, error.message.c_str());
    } else {
        std::fprintf(stderr, "kwstore: %s\n", error.message.c_str());
    }
    return false;
}

}  // namespace

int main(int argc, char** argv) {
    const std::vector<std::string> arguments = KwRes::GetArguments(argc, argv);
    if (arguments.size() > 1 || (arguments.size() == 1 && arguments[0] == "--help")) {
        std::printf("usage: kwstore [CONFIGURATION]\n");
        return arguments.size() == 1 ? 0 : 2;
    }
    const std::string config = arguments.empty() ? std::string(KwRes::GetProcessPath()) + "kwstore.ds" : arguments[0];
    if (!Check(config)) return 1;
    StoreApp app;
    const bool started = app.Init(config.c_str(), true, false);
    if (started) app.Run(app.GetPassesPerSleep());
    app.Close();
    return started ? 0 : 1;
}
