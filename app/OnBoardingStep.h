#pragma once

#include <QList>
#include <QString>

// One stop of the guided tour: the number of the control it points at and what it says there.
struct OnBoardingStep {
    enum class Position { top, bottom, leading, trailing, center };

    int index = 0;
    QString text;
    Position position = Position::trailing;

    // "ob.step.10"
    QString identity() const { return QStringLiteral("ob.step.%1").arg(index); }

    // The application's one list: the eight sidebar entries (10 to 80), the About panel (90)
    // and its three buttons (91 to 93).
    static QList<OnBoardingStep> applicationSteps();
};
