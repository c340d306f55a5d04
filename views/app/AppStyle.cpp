#include "views/app/AppStyle.h"

int AppStyle::styleHint(StyleHint hint, const QStyleOption *option, const QWidget *widget,
                        QStyleHintReturn *returnData) const
{
    switch (hint) {
    case SH_ToolTip_WakeUpDelay:
        return 300;
    case SH_ToolTip_FallAsleepDelay:
        return 150;
    default:
        return QProxyStyle::styleHint(hint, option, widget, returnData);
    }
}
