#pragma once

class Bundle;
class ImageView;
class LayerView;

/// The header of a notice as the brand's settings have it: the configured logo, the configured header colour,
/// and a white root view. A logo that is missing leaves the image view empty.
/// @param bundle  where the logo is looked up
void applyHeaderBranding(
    const Bundle &bundle, ImageView &headerLogoImageView, LayerView &headerView, LayerView &rootView);
