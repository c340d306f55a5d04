#pragma once

#include "tools/results/JSONToolResult.h"

#include <QStringList>
#include <QTextBrowser>

// What a tool returned, as its author wants to see it after a test run: the text items as
// they are, and one short line for each other item ("image/png, 12 KB"), an image with a
// small picture of it beneath.
class ToolResultView : public QTextBrowser {
    Q_OBJECT

public:
    explicit ToolResultView(QWidget *parent = nullptr);

    void showResult(const JSONToolResult &result);
    // A message in place of a result (the run could not start).
    void showMessage(const QString &text);

    // The line for an item that is not text, or nothing for a text item.
    static QString itemLine(const JSONToolContent &item);
    // "512 bytes", "12 KB", "3.4 MB".
    static QString sizeText(qint64 bytes);
};
