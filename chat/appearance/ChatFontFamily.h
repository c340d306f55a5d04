#pragma once

#include <QFont>
#include <QString>
#include <QStringList>
#include <optional>

// The font families the chat offers, in the picker's order. The system ones map to the
// desktop's general, fixed and serif fonts; a named one is looked up by its name and, when it
// isn't installed, the fixed font stands in (the picker marks it "not installed").
class ChatFontFamily {
public:
    enum Value { SystemDefault, SystemMono, SystemRounded, SystemSerif, SFMono, Menlo, Monaco, CourierNew,
                 JetBrainsMono, FiraCode, Hack, SourceCodePro, HelveticaNeue, Georgia, Palatino };

    static QStringList rawValues();
    static QString rawValue(Value family);
    static std::optional<Value> fromRawValue(const QString &raw);
    static bool isNamed(Value family) { return family >= SFMono; }
    // True for the system families, and for a named one whose family the font database knows.
    static bool isInstalled(Value family);
    static QFont font(Value family, double size, QFont::Weight weight = QFont::Normal);
};
