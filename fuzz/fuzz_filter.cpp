// libFuzzer target: the filter parser, and evaluation of whatever parses.
#include "Library/CVFilter.h"

#include <QString>

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const QString text = QString::fromUtf8(reinterpret_cast<const char *>(data), qsizetype(size));
    const auto filter = CVFilter::parse(text);
    if (!filter)
        return 0;
    static const QString values[] = { QStringLiteral("Hey Jude"), QStringLiteral("Beyonce\u0301 *?\\"), QString() };
    for (const QString &value : values) {
        filter->matches([&](const CVFilter::Leaf &leaf) {
            if (leaf.attribute.size() % 3 == 0)
                return CVFilterValue::ofNumber(double(leaf.attribute.size()));
            return value.isNull() ? CVFilterValue::absent() : CVFilterValue::ofText(&value);
        });
    }
    return 0;
}
