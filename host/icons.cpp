#include "host/icons.h"

#include <QtGui/QPainter>
#include <QtGui/QPixmap>
#include <QtSvg/QSvgRenderer>

#include <algorithm>
#include <cmath>

namespace {
constexpr double largestIcon = 4096;

int pixels(double size) {
    return static_cast<int>(std::lround(std::clamp(size, 1.0, largestIcon)));
}
} // namespace

QPixmap* renderSVG(double size, const QString& path, QPixmap* pixmap, void** cacheKey) {
    const int side = pixels(size);
    // The key is the size that the pixmap was drawn for; nothing is behind the pointer.
    void* const wanted = reinterpret_cast<void*>(static_cast<quintptr>(side));
    if (*cacheKey == wanted)
        return pixmap;
    QSvgRenderer renderer(path);
    if (!renderer.isValid())
        return nullptr;
    QPixmap drawn(side, side);
    drawn.fill(Qt::transparent);
    QPainter painter(&drawn);
    renderer.render(&painter);
    painter.end();
    *pixmap = drawn;
    *cacheKey = wanted;
    return pixmap;
}

QPixmap* resizeIcon(double size, const QPixmap* loaded, QPixmap* pixmap) {
    const int side = pixels(size);
    if (pixmap->width() != side && !loaded->isNull())
        *pixmap = loaded->scaled(side, side, Qt::KeepAspectRatio, Qt::SmoothTransformation);
    return pixmap;
}
