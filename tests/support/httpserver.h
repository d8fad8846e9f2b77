#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QString>

#include <atomic>
#include <cstdint>
#include <mutex>
#include <thread>
#include <vector>

/// Serves one file on 127.0.0.1, as badly as it is told to.
class HttpServer
{
public:
    struct Behaviour
    {
        bool answers = true;          ///< false: takes the connection and the request, and says nothing
        bool ranges = true;           ///< false: knows no ranges
        int64_t bytes_per_second = 0; ///< 0: as fast as it goes
        int64_t stall_after = -1;     ///< sends nothing more behind this offset of the file; -1: never
        int64_t cut_after = -1;       ///< ends every connection behind this offset; -1: never
    };

    HttpServer(QByteArray content, Behaviour behaviour);
    ~HttpServer();
    Q_DISABLE_COPY(HttpServer)

    QString url() const;
    /// Holds for what is sent from now on.
    void setBehaviour(Behaviour behaviour);
    int requests() const { return request_count; }
    /// The offset behind the furthest byte sent.
    int64_t sent() const { return furthest_sent; }

private:
    void accept();
    void serve(int connection);
    bool sendBody(int connection, int64_t from);
    Behaviour behaviour() const;

    const QByteArray content;
    int listener = -1;
    std::atomic<bool> ended = false;
    std::atomic<int> request_count = 0;
    std::atomic<int64_t> furthest_sent = 0;
    mutable std::mutex mutex;
    Behaviour current;                ///< guarded by `mutex`
    std::vector<std::thread> threads; ///< one a connection; belongs to `acceptor` while that runs
    std::thread acceptor;
};
