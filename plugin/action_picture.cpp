#include "plugin/action_picture.h"

#include "host/icons.h"

#include <QtGui/QGuiApplication>

bool ActionPicture::canDraw() {
    return qobject_cast<QGuiApplication*>(QCoreApplication::instance()) != nullptr;
}

QPixmap* ActionPicture::atSize(double size) {
    const QString path = QString::fromLatin1(path_);
    if (!path.endsWith(QLatin1String(".png")))
        return renderSVG(size, path, &pixmap_, &cacheKey_);
    if (loaded_.isNull() && !loaded_.load(path))
        return nullptr;
    return resizeIcon(size, &loaded_, &pixmap_);
}
