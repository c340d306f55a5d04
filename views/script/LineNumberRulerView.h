#pragma once

#include <QWidget>

class SourceTextEditor;

// The gutter of the script editor: the number of each visible line.
class LineNumberRulerView : public QWidget {
    Q_OBJECT

public:
    explicit LineNumberRulerView(SourceTextEditor *editor);
    QSize sizeHint() const override;
    int rulerWidth() const;

protected:
    void paintEvent(QPaintEvent *event) override;

private:
    SourceTextEditor *m_editor;
};
