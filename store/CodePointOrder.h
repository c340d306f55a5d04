#pragma once

#include <QString>
#include <optional>

// Plain code-point order, case-sensitive: "B" < "a". UTF-16 order differs from it only
// where a surrogate pair meets a character from U+E000 up, which the fix-up below handles.
namespace CodePointOrder {

inline int compare(const QString &a, const QString &b)
{
    const qsizetype n = std::min(a.size(), b.size());
    const QChar *pa = a.constData();
    const QChar *pb = b.constData();
    for (qsizetype i = 0; i < n; ++i) {
        char16_t x = pa[i].unicode();
        char16_t y = pb[i].unicode();
        if (x == y)
            continue;
        auto rank = [](char16_t u) -> int {
            if (u >= 0xD800 && u <= 0xDFFF)
                return int(u) + 0x2000;  // surrogates stand for code points above U+FFFF
            if (u >= 0xE000)
                return int(u) - 0x800;
            return int(u);
        };
        return rank(x) < rank(y) ? -1 : 1;
    }
    return a.size() == b.size() ? 0 : (a.size() < b.size() ? -1 : 1);
}

inline bool less(const QString &a, const QString &b) { return compare(a, b) < 0; }

// A missing value counts as "".
inline bool less(const std::optional<QString> &a, const std::optional<QString> &b)
{
    return compare(a.value_or(QString()), b.value_or(QString())) < 0;
}

}  // namespace CodePointOrder
