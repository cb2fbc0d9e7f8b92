#include "Platform/CVBugReport.h"

#include "Platform/CVFileManagerLink.h"
#include "Platform/CVLog.h"

#include <QCoreApplication>
#include <QSysInfo>
#include <QUrlQuery>

using namespace Qt::StringLiterals;

#ifndef CORVANA_BUG_REPORT_ADDRESS
#define CORVANA_BUG_REPORT_ADDRESS "bugs@corvana.org"
#endif

QString CVBugReport::address()
{
    return QStringLiteral(CORVANA_BUG_REPORT_ADDRESS);
}

QString CVBugReport::body(const QString &whatHappened)
{
    QString text = u"What happened, and what you expected:\n\n"_s;
    if (!whatHappened.isEmpty())
        text += whatHappened + u"\n"_s;
    text += u"\n\n---\nCorvana %1\nQt %2 (built with %3)\n%4, %5 %6\n"_s.arg(QCoreApplication::applicationVersion(),
        QString::fromLatin1(qVersion()), QStringLiteral(QT_VERSION_STR), QSysInfo::prettyProductName(),
        QSysInfo::kernelType(), QSysInfo::kernelVersion());
    const QStringList lines = CVLog::recentLines();
    if (!lines.isEmpty())
        text += u"\nThe last lines of the log:\n"_s + lines.join(u'\n') + u'\n';
    return text;
}

QUrl CVBugReport::mailtoUrl(const QString &whatHappened)
{
    QUrl url;
    url.setScheme(u"mailto"_s);
    url.setPath(address());
    QUrlQuery query;
    query.addQueryItem(u"subject"_s, u"Corvana %1: "_s.arg(QCoreApplication::applicationVersion()));
    // Mail clients want the body's line breaks and blanks escaped; QUrlQuery leaves "+" and "&" alone.
    query.addQueryItem(u"body"_s, QString::fromLatin1(QUrl::toPercentEncoding(body(whatHappened))));
    url.setQuery(query);
    return url;
}

bool CVBugReport::open(const QString &whatHappened)
{
    return CVFileManagerLink::shared()->openPath(mailtoUrl(whatHappened).toString(QUrl::FullyEncoded));
}
