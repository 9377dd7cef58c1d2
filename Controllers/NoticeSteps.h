#pragma once

#include <QColor>
#include <QString>

class Application;
class Bundle;
class ImageView;
class LayerView;
class LogSource;
class NoticeController;
struct NoticeServices;
template <class Object>
class Outlet;
class PushButton;

/// The steps that several notices take in the same way.

/// Skipped while the controller's view is in no window.
void setWindowAlpha(NoticeController &controller, double alpha);

/// On appearing: transparent when the payload's "WebSocketType" is the boolean true, visible otherwise.
void setWindowAlphaFromPayload(NoticeController &controller);

/// The text of a key in the default table, in the language in force; without a translation the key.
QString localized(const Bundle &bundle, const char *key);

/// The controller's root view.
LayerView &rootView(NoticeController &controller);

/// Turns on the header's or the root view's layer and gives it a ground.
void setLayer(LayerView &view, const QColor &color);

/// The brand's logo and header colour, and a white root view.
void brandHeader(NoticeController &controller, const Bundle &bundle,
    const Outlet<ImageView> &headerLogoImageView, const Outlet<LayerView> &headerView);

/// The OK button: layer, radius, accent colour.
void styleOkButton(PushButton &button);

/// The window's title bar becomes transparent, and its background gets that colour.
void styleWindow(NoticeController &controller, const QColor &background);

/// The window background that the vendor word asks for: black for one vendor, the accent colour's value
/// otherwise. The comparison is exact.
QColor vendorWindowBackground();

/// Replaces the header's logo with the image in the payload, and logs it, when there is binary data under
/// "HeaderLogoImage"; bytes that are no image clear the logo. Without such data the outlet is not touched.
void setLogoFromPayload(
    const Outlet<ImageView> &headerLogoImageView, const LogSource &logSource, const char *function);

/// Ends the application one second from now, the controller being the one who asks. Holds the controller.
void terminateAfterDelay(NoticeController &controller, const NoticeServices &services);

/// Hides the window and ends the application at once.
void closeAndTerminate(NoticeController &controller, Application &application);
