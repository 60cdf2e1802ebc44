#pragma once

#include <QColor>
#include <QIcon>

// The window's small line icons, drawn rather than shipped so they stay crisp at any scale and
// take the colour of the surface they sit on.
namespace WindowIcons {

QIcon minimize(const QColor &color);
QIcon close(const QColor &color);
QIcon sliders(const QColor &color);
QIcon folder(const QColor &color);

} // namespace WindowIcons
