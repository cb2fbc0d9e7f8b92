#include "CVFeedServer.h"

#include <QTcpSocket>
#include <QTimer>

using namespace Qt::StringLiterals;

QByteArray CVFeedServer::appcast(const QByteArray &items)
{
    return "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n<rss version=\"2.0\" "
           "xmlns:sparkle=\"http://www.andymatuschak.org/xml-namespaces/sparkle\">\n<channel>\n<title>Corvana</title>\n"
        + items + "</channel>\n</rss>\n";
}

QByteArray CVFeedServer::item(const char *version, const char *shown)
{
    return QByteArray("<item><title>Corvana ") + shown + "</title><sparkle:version>" + version
        + "</sparkle:version><sparkle:shortVersionString>" + shown
        + "</sparkle:shortVersionString><sparkle:releaseNotesLink>https://corvana.org/notes/" + shown
        + ".html</sparkle:releaseNotesLink><enclosure url=\"https://corvana.org/corvana-" + shown
        + ".tar.xz\" length=\"1\" type=\"application/octet-stream\"/></item>\n";
}

QString CVFeedServer::url() const
{
    return u"http://127.0.0.1:%1/appcast.xml"_s.arg(serverPort());
}

void CVFeedServer::incomingConnection(qintptr handle)
{
    auto *socket = new QTcpSocket(this);
    socket->setSocketDescriptor(handle);
    connect(socket, &QTcpSocket::readyRead, socket, [this, socket] {
        if (!socket->readAll().contains("\r\n\r\n"))
            return;
        const QByteArray reply = "HTTP/1.1 200 OK\r\nContent-Type: application/rss+xml\r\nContent-Length: "
            + QByteArray::number(body.size()) + "\r\nConnection: close\r\n\r\n" + body;
        QTimer::singleShot(delayMs, socket, [socket, reply] {
            socket->write(reply);
            socket->disconnectFromHost();
        });
    });
}
