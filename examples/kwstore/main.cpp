// kwstore: a named-object server on Kw. Usage: kwstore [CONFIGURATION]
// The configuration is a data-script document; without one, kwstore.ds beside the program.
#include <cstdio>
#include <string>

#include "StoreApp.h"

int main(int argc, char** argv) {
    if (argc > 2 || (argc == 2 && std::string(argv[1]) == "--help")) {
        std::printf("usage: kwstore [CONFIGURATION]\n");
        return argc == 2 ? 0 : 2;
    }
    const std::string config = argc == 2 ? argv[1] : std::string(KwRes::GetProcessPath()) + "kwstore.ds";
    StoreApp app;
    const bool started = app.Init(config.c_str(), true, false);
    if (started) {
        app.Run(1);
    } else {
        std::fprintf(stderr, "kwstore: %s could not be started with %s\n", argv[0], config.c_str());
    }
    app.Close();
    return started ? 0 : 1;
}
