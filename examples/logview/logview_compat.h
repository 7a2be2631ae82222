#ifndef QTLOG_LOGVIEW_COMPAT_H
#define QTLOG_LOGVIEW_COMPAT_H

// Every difference between Qt 4.8, 5 and 6 that the log view meets. The
// widget headers are included by class name: Qt 4 keeps them in QtGui, Qt 5
// and 6 in QtWidgets, and the build puts the right directory on the path.

#include <QPixmap>
#include <QWidget>

namespace logview {

// The window's current contents as a picture.
inline QPixmap grabWindow(QWidget *window)
{
#if QT_VERSION >= 0x050000
    return window->grab();
#else
    return QPixmap::grabWidget(window);
#endif
}

} // namespace logview

#endif // QTLOG_LOGVIEW_COMPAT_H
