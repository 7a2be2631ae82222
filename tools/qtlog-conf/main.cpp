// qtlog-conf [FILE]: checks a qtlog settings file (default: log.conf in the
// working directory) and shows what each destination will do with it.

#include "conf_checker.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QStringList>
#include <QtCore/QTextStream>

#include <stdio.h>

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    QTextStream out(stdout);
    QTextStream err(stderr);
    const QStringList args = QCoreApplication::arguments().mid(1);
    if (args.size() > 1 || (!args.isEmpty() && args.first().startsWith(QLatin1Char('-')))) {
        const bool help = args.size() == 1
            && (args.first() == QLatin1String("-h") || args.first() == QLatin1String("--help"));
        (help ? out : err)
            << "usage: qtlog-conf [FILE]\n"
               "Checks a qtlog settings file (default: log.conf) and shows the settings\n"
               "each destination takes from it, with sample lines in its formats.\n"
               "Exit status: 0 no warnings, 1 warnings, 2 the file cannot be read.\n";
        return help ? 0 : 2;
    }
    return checkSettingsFile(args.isEmpty() ? QString::fromLatin1("log.conf") : args.first(),
                             out, err);
}
