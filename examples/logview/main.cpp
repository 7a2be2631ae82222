// qtlog log view: the application's recent log, live, in a window.
//
//     qtlog-logview [--generator[=RATE]] [--screenshot FILE] [CONFIG-DIR/]
//
// --generator starts the built-in load generator (RATE records per second,
// default 1000). --screenshot saves the window as a PNG and quits, after two
// seconds and once a critical line shows (or after seven seconds). The settings are CONFIG-DIR/log.conf, by default the log.conf
// next to the program.

#include "logview.h"
#include "logview_compat.h"

#include <logging/logging.h>

#include <QApplication>
#include <QTimer>

#include <stdio.h>

namespace {

class Screenshot : public QObject
{
    Q_OBJECT

public:
    Screenshot(logview::LogViewWindow *window, const QString &fileName)
        : saved(false), window(window), fileName(fileName), tries(0)
    {
    }

    bool saved;

public Q_SLOTS:
    void take()
    {
        // A picture with every colour: wait for a critical line among the
        // newest ones.
        const QAbstractItemModel *lines = window->shownLines();
        bool critical = false;
        for (int row = qMax(0, lines->rowCount() - 12); row < lines->rowCount(); ++row)
            critical = critical || lines->index(row, 0).data().toString().startsWith(QLatin1Char('c'));
        if (!critical && ++tries < 100) {
            QTimer::singleShot(50, this, SLOT(take()));
            return;
        }
        saved = logview::grabWindow(window).save(fileName, "PNG");
        if (!saved)
            fprintf(stderr, "qtlog-logview: cannot write %s\n", qPrintable(fileName));
        QApplication::quit();
    }

private:
    logview::LogViewWindow *window;
    QString fileName;
    int tries;
};

} // namespace

int main(int argc, char **argv)
{
    QApplication app(argc, argv);

    int rate = 0;
    QString screenshot;
    QString configDir = QApplication::applicationDirPath() + QLatin1Char('/');
    const QStringList args = app.arguments();
    for (int i = 1; i < args.size(); ++i) {
        const QString &arg = args.at(i);
        if (arg == QLatin1String("--generator")) {
            rate = 1000;
        } else if (arg.startsWith(QLatin1String("--generator="))) {
            rate = arg.mid(12).toInt();
        } else if (arg == QLatin1String("--screenshot") && i + 1 < args.size()) {
            screenshot = args.at(++i);
        } else if (!arg.startsWith(QLatin1Char('-'))) {
            configDir = arg.endsWith(QLatin1Char('/')) ? arg : arg + QLatin1Char('/');
        } else {
            fprintf(stderr, "usage: qtlog-logview [--generator[=RATE]] [--screenshot FILE] [CONFIG-DIR/]\n");
            return 2;
        }
    }

    logging::Initializer logging(QStringList() << configDir);
    logview::LogViewWindow window;
    window.resize(960, 540);
    window.show();
    QTLOG_INFO("logview") << "settings from" << configDir;
    if (rate > 0)
        window.setGeneratorRate(rate);

    Screenshot shot(&window, screenshot);
    if (!screenshot.isEmpty())
        QTimer::singleShot(2000, &shot, SLOT(take()));
    const int result = app.exec();
    window.setGeneratorRate(0);
    return screenshot.isEmpty() || shot.saved ? result : 1;
}

#include "main.moc"
