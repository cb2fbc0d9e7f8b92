#pragma once

#include <QString>

#include <optional>
#include <string_view>

// The path of a file URL as the player writes them: "file:///..." or "file://localhost/...",
// percent escapes decoded exactly once, the Unicode form kept as stored, one trailing "/"
// dropped. Nothing when the text is not a file URL, or when it is not the path of one file: an
// escape that decodes to "/" or NUL inside a name, or a "." or ".." component.
namespace CVFileURL {

std::optional<QString> pathFromFileURL(std::string_view url);
// The reverse, as the player writes it: "file://localhost/" and the path percent-encoded.
QByteArray fileURLFromPath(const QString &path);

} // namespace CVFileURL
