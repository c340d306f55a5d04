#pragma once

#include "app/security/OpenPanelRequest.h"

#include <QUrl>
#include <functional>

// The seam between the controllers and the window system's open panel. The desktop
// installs one that shows a file dialog, tests one that answers at once (AccessPanel).
class OpenPanelPresenter {
public:
    virtual ~OpenPanelPresenter() = default;

    // Shows the panel and calls completion exactly once, on the main thread, with the
    // chosen location, or with an empty URL when the user cancelled.
    virtual void present(const OpenPanelRequest &request, std::function<void(const QUrl &chosen)> completion) = 0;
};
