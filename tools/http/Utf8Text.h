#pragma once

#include <QString>

namespace Utf8Text {

// Whether text can be written as UTF-8 without loss: a QString may hold a lone surrogate
// (scripts can make one), which has no UTF-8 form.
inline bool isEncodable(const QString &text)
{
    const qsizetype size = text.size();
    for (qsizetype i = 0; i < size; ++i) {
        const QChar c = text.at(i);
        if (c.isHighSurrogate()) {
            if (i + 1 >= size || !text.at(i + 1).isLowSurrogate())
                return false;
            ++i;
        } else if (c.isLowSurrogate()) {
            return false;
        }
    }
    return true;
}

}  // namespace Utf8Text
