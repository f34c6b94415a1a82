// kwcall: sends commands to kwstore, and drives a load.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <exception>

#include "Kw/Res/KwRes.h"
#include "common/Terminal.h"
#include "common/ToolError.h"
#include "kwcall/Commands.h"

namespace {

constexpr const char* kAbout =
    "Sends commands to a running kwstore and prints its answers.\n\n"
    "The store listens where its configuration has Net={ port=7020 }. Without a COMMAND each line of standard input "
    "is\n"
    "one: blanks part the words, quotes keep them together, # begins a comment. Lines are sent without waiting for "
    "the\n"
    "answers before, which come in the order of the lines. \"kwcall help\" lists the store's commands.\n";

constexpr const char* kMore =
    "Examples:\n"
    "  kwcall set anna city=Graz level=3\n"
    "  kwcall get anna\n"
    "  kwcall --json find an | jq -r .answer\n"
    "  sed 's/^/del /' names.txt | kwcall\n"
    "  kwcall --load --connections 50 --pipeline 16 --requests 1000000\n"
    "  kwcall --echo --port 7021        and then: kwcall --load --port 7021, what the load tool itself costs\n\n"
    "Answers go to standard output, errors and refusals to standard error; with --json all of them, one object a "
    "line,\n"
    "to standard output.\n"
    "Exit codes: 0 all was done, 1 an answer was an error or a refusal, 2 wrong usage, 3 no connection, or it ended, "
    "or\n"
    "no answer came in time.";

}  // namespace

int main(int argc, char** argv) {
    UseUtf8();
    CLI::App app(kAbout, "kwcall");
    app.footer(kMore);
    app.positionals_at_end();
    Target target;
    LoadPlan plan;
    bool json = false, load = false, echo = false, insecure = false;
    target.net.port = 7020;
    std::vector<std::string> words;
    app.add_option("COMMAND", words, "The command and its parameters; behind -- where one begins with -");
    app.add_option("--host", target.net.address, "Where the store is")->capture_default_str();
    app.add_option("--port", target.net.port, "Its port")->capture_default_str()->check(CLI::Range(0, 65535));
    app.add_option("--token", target.token, "What the store's configuration has as its token")->envname("KWCALL_TOKEN");
    app.add_option("--timeout", target.timeout, "Seconds to wait for a connection or an answer, 0: for ever")
        ->capture_default_str()
        ->check(CLI::Range(0.0, 1e6));
    app.add_flag("--json", json, "Answers as JSON");
    app.add_flag("--tls", target.net.tls.on, "Over TLS; the store's certificate is checked");
    app.add_option("--authority", target.net.tls.authorityFile,
                   "PEM file of the authorities to trust, not the system's")
        ->needs("--tls");
    CLI::Option* const certificate =
        app.add_option("--certificate", target.net.tls.certificateFile, "PEM file to show to a store that asks for one")
            ->needs("--tls");
    CLI::Option* const key = app.add_option("--key", target.net.tls.keyFile, "PEM file of its key");
    certificate->needs(key);
    key->needs(certificate);
    app.add_flag("--insecure", insecure, "Do not check the store's certificate")->needs("--tls");
    app.add_flag("--load", load, "Drives a load and prints its rate and latencies");
    app.add_flag("--echo", echo,
                 "Listens at --host and --port itself and answers everything at once, until it is ended");
    const std::string group = "With --load";
    const auto add = [&](const char* name, unsigned int& value, const char* about, unsigned int least,
                         unsigned int most) {
        app.add_option(name, value, about)
            ->capture_default_str()
            ->check(CLI::Range(least, most))
            ->group(group)
            ->needs("--load");
    };
    add("--connections", plan.connections, "Connections", 1, 10000);
    add("--pipeline", plan.pipeline, "Requests that a connection sends at once", 1, 10000);
    add("--requests", plan.requests, "Requests in all", 1, 1000000000);
    add("--keys", plan.keys, "Different objects", 1, 1000000000);
    add("--size", plan.size, "Bytes of a value", 1, 10000);
    add("--set", plan.setShare, "Percent of the requests that set; the others get", 0, 100);
    app.add_flag("--fill", plan.fill, "First sets every object once, which does not count")
        ->group(group)
        ->needs("--load");

    try {
        std::vector<std::string> arguments = KwRes::GetArguments(argc, argv);
        std::reverse(arguments.begin(), arguments.end());  // as parse takes them
        app.parse(std::move(arguments));
        if (load + echo + (words.empty() ? 0 : 1) > 1) throw CLI::ValidationError("a COMMAND, --load or --echo");
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? kAllDone : kWrongUsage;
    }
    target.net.tls.verifyServer = !insecure;
    if (target.timeout > 0) target.net.connectMs = static_cast<unsigned int>(std::max(target.timeout * 1000, 1.0));
    try {
        SNetServerSettings server;
        server.address = target.net.address;
        server.port = target.net.port;
        const int result = echo ? Echo(server) : load ? Load(target, plan, json) : Call(target, words, json);
        if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) throw ToolError("standard output cannot be written");
        return result;
    } catch (const ToolError& error) {
        std::fflush(stdout);
        std::fprintf(stderr, "kwcall: %s\n", error.what());
        return kNotReached;
    }
}
