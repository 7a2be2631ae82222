// Logs one record of each level to syslog only, then stops the library.
#include <logging/logging.h>

#include <QtCore/QCoreApplication>
#include <QtCore/QFile>

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    QFile settings("log.conf");
    if (!settings.open(QIODevice::WriteOnly))
        return 1;
    settings.write("active = syslog\nlevel = 5\n[syslog]\nformat = #mf\n");
    settings.close();
    {
        logging::Initializer init(QStringList() << "./");
        QTLOG_CRITICAL("check") << "Critical 0: 100% %s %d %n done";
        QTLOG_ERROR("check") << "Error 1: 100% %s %d %n done";
        QTLOG_WARNING("check") << "Warning 2: 100% %s %d %n done";
        QTLOG_INFO("check") << "Info 3: 100% %s %d %n done";
        QTLOG_DEBUG("check") << "Debug 4: 100% %s %d %n done";
        QTLOG_TRACE("check") << "Trace 5: 100% %s %d %n done";
        QTLOG_INFO("check") << "syslog-check done";
    }
    return 0;
}
