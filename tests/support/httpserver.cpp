#include "tests/support/httpserver.h"

#include <QtCore/QRegularExpression>
#include <QtCore/QtGlobal>

#include <algorithm>
#include <arpa/inet.h>
#include <chrono>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>

namespace {
constexpr std::chrono::milliseconds kPoll(5);
constexpr int64_t kChunkBytes = 1400;

bool sendAll(int connection, const char* data, int64_t size)
{
    while (size > 0) {
        const ssize_t sent = ::send(connection, data, static_cast<size_t>(size), MSG_NOSIGNAL);
        if (sent <= 0)
            return false;
        data += sent;
        size -= sent;
    }
    return true;
}

bool waitToRead(int socket)
{
    pollfd descriptor{socket, POLLIN, 0};
    return ::poll(&descriptor, 1, static_cast<int>(kPoll.count())) > 0;
}
} // namespace

HttpServer::HttpServer(QByteArray file, Behaviour behaviour)
    : content(std::move(file))
    , listener(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
    , current(behaviour)
{
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (::bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
        ::listen(listener, 8) != 0)
        qFatal("no port on 127.0.0.1");
    acceptor = std::thread([this] { accept(); });
}

HttpServer::~HttpServer()
{
    ended = true;
    acceptor.join();
    for (std::thread& thread : threads)
        thread.join();
    ::close(listener);
}

QString HttpServer::url() const
{
    sockaddr_in address = {};
    socklen_t size = sizeof address;
    ::getsockname(listener, reinterpret_cast<sockaddr*>(&address), &size);
    return QStringLiteral("http://127.0.0.1:%1/file").arg(ntohs(address.sin_port));
}

void HttpServer::setBehaviour(Behaviour behaviour)
{
    const std::lock_guard lock(mutex);
    current = behaviour;
}

HttpServer::Behaviour HttpServer::behaviour() const
{
    const std::lock_guard lock(mutex);
    return current;
}

void HttpServer::accept()
{
    while (!ended) {
        if (!waitToRead(listener))
            continue;
        const int connection = ::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
        if (connection >= 0)
            threads.emplace_back([this, connection] {
                serve(connection);
                ::close(connection);
            });
    }
}

void HttpServer::serve(int connection)
{
    QByteArray request;
    while (!request.contains("\r\n\r\n")) {
        if (ended)
            return;
        if (!waitToRead(connection))
            continue;
        char buffer[4096];
        const ssize_t got = ::recv(connection, buffer, sizeof buffer, 0);
        if (got <= 0)
            return;
        request.append(buffer, static_cast<int>(got));
    }
    ++request_count;
    while (!behaviour().answers && !ended)
        std::this_thread::sleep_for(kPoll);

    const auto range =
        QRegularExpression("\\r\\nRange: bytes=(\\d+)-", QRegularExpression::CaseInsensitiveOption)
            .match(QString::fromLatin1(request));
    const bool partial = behaviour().ranges && range.hasMatch();
    const int64_t from = partial ? std::min<int64_t>(range.captured(1).toLongLong(), content.size()) : 0;
    QByteArray head = partial ? "HTTP/1.1 206 Partial Content\r\n" : "HTTP/1.1 200 OK\r\n";
    if (behaviour().ranges)
        head += "Accept-Ranges: bytes\r\n";
    if (partial)
        head += "Content-Range: bytes " + QByteArray::number(qint64{from}) + "-" +
                QByteArray::number(content.size() - 1) + "/" + QByteArray::number(content.size()) + "\r\n";
    head += "Connection: close\r\nContent-Length: " + QByteArray::number(qint64{content.size() - from}) +
            "\r\n\r\n";
    if (sendAll(connection, head.constData(), head.size()) && !sendBody(connection, from))
        return;
    ::shutdown(connection, SHUT_WR);
}

bool HttpServer::sendBody(int connection, int64_t from)
{
    for (int64_t offset = from; offset < content.size() && !ended;) {
        const Behaviour now = behaviour();
        if (now.cut_after >= 0 && offset >= now.cut_after)
            return false;
        if (now.stall_after >= 0 && offset >= now.stall_after) {
            std::this_thread::sleep_for(kPoll);
            continue;
        }
        const int64_t size = std::min<int64_t>(kChunkBytes, content.size() - offset);
        if (!sendAll(connection, content.constData() + offset, size))
            return false;
        offset += size;
        furthest_sent = std::max<int64_t>(furthest_sent, offset);
        if (now.bytes_per_second > 0)
            std::this_thread::sleep_for(std::chrono::microseconds(size * 1'000'000 / now.bytes_per_second));
    }
    return true;
}
