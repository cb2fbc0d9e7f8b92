#pragma once

#include "Library/CVPredicate.h"

#include <QByteArray>
#include <QString>

#include <optional>

// The one encoding of an archived predicate: the drag data of every pane ("CVDraggingPredicate")
// and the saved spanning queue. Versioned JSON:
//   {"CVDraggingPredicate": 1, "text": "( Genre == 'Rock' )"}
//   {"CVDraggingPredicate": 1, "dictionary": {"TrackID": [1, 2], "cacheKey": "1,2", ...}}
// A reader takes any version up to its own and ignores keys it does not know.
namespace CVPredicateArchive {

inline constexpr int Version = 1;
// The MIME type of the drag data; the pasteboard type's name is kept as a parameter.
inline constexpr auto MimeType = "application/x-corvana-predicate; type=CVDraggingPredicate";

QByteArray archive(const CVPredicate &predicate);
// Nothing when the data is not an archive of ours, or of a newer version.
std::optional<CVPredicate> unarchive(const QByteArray &data);

} // namespace CVPredicateArchive
