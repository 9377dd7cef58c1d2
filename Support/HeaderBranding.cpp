#include "Support/HeaderBranding.h"

#include "Platform/Views/ImageView.h"
#include "Platform/Views/LayerView.h"
#include "Support/ColorFromHex.h"
#include "Support/CustomAPPManager.h"

void applyHeaderBranding(
    const Bundle &bundle, ImageView &headerLogoImageView, LayerView &headerView, LayerView &rootView) {
    headerLogoImageView.setImage(Image::named(bundle, CustomAPPManager::AppLogo));
    headerView.setLayerBackgroundColor(colorFromHex(CustomAPPManager::globalAppViewBackgroundColor));
    rootView.setLayerBackgroundColor(Qt::white);
}
