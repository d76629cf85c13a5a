/// One picture of an Action at the size asked for last.
#pragma once

#include <QtGui/QPixmap>

class ActionPicture {
public:
    /// `path` names an SVG or PNG resource and must live as long as the picture.
    explicit ActionPicture(const char* path) : path_(path) {}

    /// Whether there is a user interface to draw for; without one no picture can be made.
    static bool canDraw();

    /// The picture at a size in pixels, owned by this object; null when there is no such resource.
    /// User-interface thread only.
    QPixmap* atSize(double size);

private:
    const char* path_;
    QPixmap pixmap_;
    QPixmap loaded_;           ///< of a PNG: the image as it was stored
    void* cacheKey_ = nullptr; ///< of an SVG: see renderSVG
};
