// libFuzzer target: the plist reader, in memory and streamed, and the library reader on top.
#include "Library/CVLibraryFileReader.h"
#include "Library/CVPlistReader.h"

#include <QBuffer>

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const QByteArray bytes(reinterpret_cast<const char *>(data), qsizetype(size));

    CVPlistReader memory { QByteArrayView(bytes) };
    std::size_t tokens = 0;
    for (;;) {
        const CVPlistReader::Token t = memory.next();
        if (t == CVPlistReader::Token::Error || t == CVPlistReader::Token::EndDocument)
            break;
        if (t == CVPlistReader::Token::Data)
            (void)memory.data();
        // Every token consumes input: more tokens than bytes would mean a loop.
        if (++tokens > size + 2)
            __builtin_trap();
    }

    QBuffer buffer;
    buffer.setData(bytes);
    buffer.open(QIODevice::ReadOnly);
    CVPlistReader streamed(&buffer, 67);
    while (true) {
        const CVPlistReader::Token t = streamed.next();
        if (t == CVPlistReader::Token::Error || t == CVPlistReader::Token::EndDocument)
            break;
    }
    if (streamed.hasError() != memory.hasError())
        __builtin_trap();

    CVLibraryContents contents;
    CVLibraryFileReader whole;
    const bool read = whole.readDocument(QByteArrayView(bytes), contents);

    // Read again in two parts wherever a split is found: the same error, or the same tracks
    // (what a failed read leaves behind is never used).
    CVLibraryFileReader::Options options;
    options.twoPartsFrom = 0;
    CVLibraryFileReader halves(options);
    CVLibraryContents parts;
    if (halves.readDocument(QByteArrayView(bytes), parts) != read || halves.errorString() != whole.errorString())
        __builtin_trap();
    if (read
        && (parts.tracks.size() != contents.tracks.size() || parts.playlists.size() != contents.playlists.size()
            || parts.persistentID != contents.persistentID || parts.mediaPath != contents.mediaPath))
        __builtin_trap();
    return 0;
}
