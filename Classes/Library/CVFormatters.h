#pragma once

#include <QString>

// The texts that turn the library's raw numbers into what the user reads. Their units,
// thresholds and spellings are part of the product's look.
namespace CVFormatters {

QString humanReadableSizeFromBytes(double bytes);
QString formatSampleRate(double hertz); // null for 0
QString humanReadableTimeFromMilliseconds(double milliseconds, bool roundOffTime);
QString formatDate(qint64 secondsSinceEpoch); // local time, "03/14/2009 09:05:07 PM"
// sortValue is the file's "Sort <Key>" value and value the plain one; null means absent.
QString customSortString(const QString &sortValue, const QString &value);
// "Music (on Media)"; "/" and drive roots show their own name only.
QString createDisplayTitleForPath(const QString &path, const QString &startupDriveName);

} // namespace CVFormatters
