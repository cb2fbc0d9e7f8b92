#include "Preferences/CVUpdateChecker.h"

#include "Platform/CVLog.h"
#include "Platform/CVSettings.h"

#include <QDateTime>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QRegularExpression>
#include <QXmlStreamReader>

using namespace Qt::StringLiterals;

#ifndef CORVANA_UPDATE_FEED_URL
#define CORVANA_UPDATE_FEED_URL ""
#endif

namespace {

const QString kSparkle = u"http://www.andymatuschak.org/xml-namespaces/sparkle"_s;
// A feed larger than this is not an appcast.
constexpr qint64 kMaxFeedBytes = 4 * 1024 * 1024;

} // namespace

CVUpdateChecker::CVUpdateChecker(CVSettings *settings, const QString &currentVersion, QObject *parent)
    : QObject(parent)
    , m_settings(settings)
    , m_currentVersion(currentVersion)
    , m_network(new QNetworkAccessManager(this))
{
    m_timer.setSingleShot(true);
    connect(&m_timer, &QTimer::timeout, this, [this] { checkForUpdates(false); });
    for (const CVSettingsKey key :
        { CVSettingsKey::SUEnableAutomaticChecks, CVSettingsKey::SUScheduledCheckInterval, CVSettingsKey::SUFeedURL })
        m_settings->observe(key, this, [this] { schedule(); });
}

CVUpdateChecker::~CVUpdateChecker()
{
    if (m_reply)
        m_reply->abort();
}

QUrl CVUpdateChecker::builtInFeedUrl()
{
    return QUrl(QStringLiteral(CORVANA_UPDATE_FEED_URL));
}

QUrl CVUpdateChecker::feedUrl() const
{
    const QUrl url = m_settings->contains(CVSettingsKey::SUFeedURL)
        ? QUrl(m_settings->stringValue(CVSettingsKey::SUFeedURL))
        : builtInFeedUrl();
    return url.isValid() && (url.scheme() == u"https"_s || url.scheme() == u"http"_s) ? url : QUrl();
}

void CVUpdateChecker::checkForUpdates(bool userInitiated)
{
    if (m_reply)
        return;
    m_userInitiated = userInitiated;
    const QUrl url = feedUrl();
    if (url.isEmpty()) {
        Result result;
        result.userInitiated = userInitiated;
        result.message = u"This build of Corvana checks for no updates: your distribution's packages bring new "
                         "versions."_s;
        Q_EMIT checkFinished(result);
        return;
    }
    QNetworkRequest request(url);
    request.setTransferTimeout(m_timeoutMs);
    request.setHeader(QNetworkRequest::UserAgentHeader, u"Corvana/%1"_s.arg(m_currentVersion));
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute, QNetworkRequest::NoLessSafeRedirectPolicy);
    m_reply = m_network->get(request);
    connect(m_reply, &QNetworkReply::finished, this, &CVUpdateChecker::finished);
}

void CVUpdateChecker::finished()
{
    QNetworkReply *reply = m_reply;
    m_reply = nullptr;
    reply->deleteLater();
    Result result;
    result.userInitiated = m_userInitiated;
    m_settings->setValue(CVSettingsKey::SULastCheckTime, QDateTime::currentSecsSinceEpoch());
    if (reply->error() != QNetworkReply::NoError) {
        const bool timedOut = reply->error() == QNetworkReply::OperationCanceledError;
        result.message = u"The update check failed: %1"_s.arg(
            timedOut ? u"the server did not answer in time."_s : reply->errorString());
        CVLog::log(result.message);
    } else if (reply->size() > kMaxFeedBytes) {
        result.message = u"The update check failed: the server sent something else than an update feed."_s;
    } else {
        QString error;
        const std::optional<QList<Release>> releases = parseAppcast(reply->readAll(), &error);
        if (!releases || releases->isEmpty()) {
            result.message = u"The update check failed: the update feed cannot be read (%1)."_s.arg(
                releases ? u"it lists no version"_s : error);
            CVLog::log(result.message);
        } else {
            const Release newest = *std::max_element(releases->cbegin(), releases->cend(),
                [](const Release &a, const Release &b) { return compareVersions(a.version, b.version) < 0; });
            result.newest = newest;
            const QString shown = newest.shortVersion.isEmpty() ? newest.version : newest.shortVersion;
            if (compareVersions(newest.version, m_currentVersion) > 0) {
                result.outcome = Outcome::UpdateAvailable;
                result.message = u"Corvana %1 is available; you have %2."_s.arg(shown, m_currentVersion);
            } else {
                result.outcome = Outcome::UpToDate;
                result.message = u"Corvana %1 is the newest version."_s.arg(m_currentVersion);
            }
        }
    }
    schedule();
    Q_EMIT checkFinished(result);
}

void CVUpdateChecker::startScheduling()
{
    schedule();
}

void CVUpdateChecker::schedule()
{
    m_timer.stop();
    m_nextCheck = {};
    if (!m_settings->boolValue(CVSettingsKey::SUEnableAutomaticChecks) || feedUrl().isEmpty() || m_reply)
        return;
    const qint64 interval = qMax<qint64>(3600, m_settings->integerValue(CVSettingsKey::SUScheduledCheckInterval));
    const qint64 last = m_settings->integerValue(CVSettingsKey::SULastCheckTime);
    const qint64 now = QDateTime::currentSecsSinceEpoch();
    // A check that is due waits a little after the start, so that it never slows the load.
    const qint64 due = qMax(last + interval, now + 60);
    m_nextCheck = QDateTime::fromSecsSinceEpoch(due);
    m_timer.start(std::chrono::seconds(qMin<qint64>(due - now, qint64(24) * 24 * 3600)));
}

std::optional<QList<CVUpdateChecker::Release>> CVUpdateChecker::parseAppcast(const QByteArray &xml, QString *error)
{
    QList<Release> releases;
    QXmlStreamReader reader(xml);
    bool sawChannel = false;
    std::optional<Release> item;
    while (!reader.atEnd()) {
        reader.readNext();
        if (reader.isStartElement()) {
            const QStringView name = reader.name();
            if (name == u"channel"_s) {
                sawChannel = true;
            } else if (name == u"item"_s) {
                item = Release();
            } else if (item && name == u"title"_s && reader.namespaceUri().isEmpty()) {
                item->title = reader.readElementText();
            } else if (item && reader.namespaceUri() == kSparkle && name == u"version"_s) {
                item->version = reader.readElementText().trimmed();
            } else if (item && reader.namespaceUri() == kSparkle && name == u"shortVersionString"_s) {
                item->shortVersion = reader.readElementText().trimmed();
            } else if (item && reader.namespaceUri() == kSparkle && name == u"releaseNotesLink"_s) {
                item->releaseNotes = QUrl(reader.readElementText().trimmed());
            } else if (item && name == u"enclosure"_s) {
                const QXmlStreamAttributes a = reader.attributes();
                item->download = QUrl(a.value(u"url"_s).toString());
                if (item->version.isEmpty())
                    item->version = a.value(kSparkle, u"version"_s).toString().trimmed();
                if (item->shortVersion.isEmpty())
                    item->shortVersion = a.value(kSparkle, u"shortVersionString"_s).toString().trimmed();
            }
        } else if (reader.isEndElement() && reader.name() == u"item"_s && item) {
            if (!item->version.isEmpty())
                releases.append(*item);
            item.reset();
        }
    }
    if (reader.hasError() || !sawChannel) {
        if (error)
            *error = reader.hasError() ? u"line %1: %2"_s.arg(reader.lineNumber()).arg(reader.errorString())
                                       : u"it is not an RSS feed"_s;
        return std::nullopt;
    }
    return releases;
}

int CVUpdateChecker::compareVersions(const QString &a, const QString &b)
{
    // Runs of digits compare as numbers, other runs as text; a text run where the other version
    // has ended or has a number marks a pre-release ("2.0b1" before "2.0").
    static const QRegularExpression parts(u"\\d+|[^\\d.]+"_s);
    const auto split = [](const QString &v) {
        QStringList out;
        for (auto it = parts.globalMatch(v); it.hasNext();)
            out.append(it.next().captured());
        return out;
    };
    const QStringList x = split(a);
    const QStringList y = split(b);
    for (qsizetype i = 0; i < qMax(x.size(), y.size()); ++i) {
        const bool xEnd = i >= x.size();
        const bool yEnd = i >= y.size();
        const bool xNumber = !xEnd && x[i][0].isDigit();
        const bool yNumber = !yEnd && y[i][0].isDigit();
        if (xEnd)
            return yNumber ? -1 : 1;
        if (yEnd)
            return xNumber ? 1 : -1;
        if (xNumber && yNumber) {
            const qulonglong p = x[i].toULongLong();
            const qulonglong q = y[i].toULongLong();
            if (p != q)
                return p < q ? -1 : 1;
        } else if (xNumber != yNumber) {
            return xNumber ? 1 : -1;
        } else if (const int c = x[i].compare(y[i], Qt::CaseInsensitive); c != 0) {
            return c < 0 ? -1 : 1;
        }
    }
    return 0;
}
