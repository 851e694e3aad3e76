// serve: the catalogue's web page and JSON API (server/web_server.h) until
// SIGINT or SIGTERM.

#include <pthread.h>

#include <csignal>
#include <thread>

#include "catalogue/cmd/commands.h"
#include "catalogue/model/query_params.h"
#include "catalogue/server/web_server.h"

namespace catalogue {

int RunServe(const TArgs& args, TContext& ctx) {
    TServeOptions options;
    const std::string* db = args.Get("db");
    options.db = db ? *db : DefaultDatabase();
    try {
        if (const std::string* listen = args.Get("listen")) ParseListen(*listen, options);
    } catch (const CBadParameter& e) {
        throw CUsageError(e.what());
    }
    if (const std::string* file = args.Get("token-file")) options.token = ReadToken(*file);
    if (const std::string* cert = args.Get("tls-cert")) options.tlsCert = *cert;
    if (const std::string* key = args.Get("tls-key")) options.tlsKey = *key;

    // SIGINT and SIGTERM are taken by a thread of their own, which stops the
    // server; the server's threads, made after this, inherit the mask.
    sigset_t stopSignals;
    sigemptyset(&stopSignals);
    sigaddset(&stopSignals, SIGINT);
    sigaddset(&stopSignals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);

    std::unique_ptr<CWebServer> server;
    try {
        server = std::make_unique<CWebServer>(options);
    } catch (const CBadParameter& e) {
        throw CUsageError(e.what());
    }
    ctx.out << "ngi-catalogue: serving " << options.db << " on " << server->Url() << "\n";
    ctx.out.Flush();
    std::thread watcher([&] {
        int signal = 0;
        sigwait(&stopSignals, &signal);
        server->Stop();
    });
    server->Run();
    // Run ended by a signal: the watcher has done its work. Ended otherwise
    // (the listening socket failed): wake the watcher.
    pthread_kill(watcher.native_handle(), SIGTERM);
    watcher.join();
    pthread_sigmask(SIG_UNBLOCK, &stopSignals, nullptr);
    return 0;
}

}  // namespace catalogue
