#pragma once

#include <QByteArray>
#include <QString>

#include <cstdio>

// A small streaming JSON writer: a 100,000-track listing goes out without building a
// document in memory first.
class CVJsonWriter {
public:
    explicit CVJsonWriter(std::FILE *out)
        : m_out(out)
    {
    }
    ~CVJsonWriter() { flush(); }

    void beginObject()
    {
        separate();
        m_buffer += '{';
        m_first = true;
    }
    void endObject()
    {
        m_buffer += '}';
        m_first = false;
        maybeFlush();
    }
    void beginArray()
    {
        separate();
        m_buffer += '[';
        m_first = true;
    }
    void endArray()
    {
        m_buffer += ']';
        m_first = false;
        maybeFlush();
    }
    void key(QStringView name)
    {
        separate();
        string(name);
        m_buffer += ':';
        m_first = true;
    }
    void value(QStringView text)
    {
        separate();
        string(text);
    }
    void value(qint64 number)
    {
        separate();
        m_buffer += QByteArray::number(number);
    }
    void value(double number)
    {
        separate();
        if (number == double(qint64(number)) && number > -9e15 && number < 9e15)
            m_buffer += QByteArray::number(qint64(number));
        else
            m_buffer += QByteArray::number(number, 'g', 17);
    }
    void value(bool flag)
    {
        separate();
        m_buffer += flag ? "true" : "false";
    }
    void null()
    {
        separate();
        m_buffer += "null";
    }
    void newline() { m_buffer += '\n'; }
    void flush()
    {
        std::fwrite(m_buffer.constData(), 1, std::size_t(m_buffer.size()), m_out);
        m_buffer.clear();
    }

private:
    void separate()
    {
        if (!m_first)
            m_buffer += ',';
        m_first = false;
    }
    void maybeFlush()
    {
        if (m_buffer.size() > (1 << 16))
            flush();
    }
    void string(QStringView text)
    {
        m_buffer += '"';
        const qsizetype n = text.size();
        for (qsizetype i = 0; i < n; ++i) {
            const char16_t u = text[i].unicode();
            if (u == '"' || u == '\\') {
                m_buffer += '\\';
                m_buffer += char(u);
            } else if (u < 0x20) {
                escape(u);
            } else if (u < 0x80) {
                m_buffer += char(u);
            } else if (QChar::isHighSurrogate(u) && i + 1 < n && text[i + 1].isLowSurrogate()) {
                m_buffer += text.mid(i, 2).toUtf8();
                ++i;
            } else if (QChar::isSurrogate(u)) {
                escape(u); // a lone surrogate has no UTF-8 form
            } else {
                m_buffer += QStringView(text.data() + i, 1).toUtf8();
            }
        }
        m_buffer += '"';
    }
    void escape(char16_t u)
    {
        switch (u) {
        case '\n':
            m_buffer += "\\n";
            break;
        case '\t':
            m_buffer += "\\t";
            break;
        case '\r':
            m_buffer += "\\r";
            break;
        default:
            m_buffer += QByteArray("\\u") + QByteArray::number(u, 16).rightJustified(4, '0');
        }
    }

    std::FILE *m_out;
    QByteArray m_buffer;
    bool m_first = true;
};
