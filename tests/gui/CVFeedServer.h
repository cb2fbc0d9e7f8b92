#pragma once

#include <QByteArray>
#include <QTcpServer>

// An update feed served on loopback: every request is answered with the body, after the delay
// (a delay longer than the test lasts is never answered).
class CVFeedServer : public QTcpServer {
public:
    QByteArray body;
    int delayMs = 0;

    // An appcast holding these items, and one item of it.
    static QByteArray appcast(const QByteArray &items);
    static QByteArray item(const char *version, const char *shown);
    QString url() const;

protected:
    void incomingConnection(qintptr handle) override;
};
