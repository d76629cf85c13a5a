/// The pictures of Actions, drawn at the size that the program asks for.
#pragma once

#include "host/export.h"

class QPixmap;
class QString;

/// Draws the SVG resource at `path` into `pixmap` at a size in pixels, unless it holds that size
/// already, and returns it; null when there is no such picture. `cacheKey` belongs to the pixmap
/// and starts as null. User-interface thread only.
VELMORRA_CORE QPixmap* renderSVG(double size, const QString& path, QPixmap* pixmap,
                                 void** cacheKey);

/// Scales `loaded` into `pixmap`, unless it has that size already, and returns it.
VELMORRA_CORE QPixmap* resizeIcon(double size, const QPixmap* loaded, QPixmap* pixmap);
