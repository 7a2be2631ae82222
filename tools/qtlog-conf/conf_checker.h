#ifndef QTLOG_CONF_CHECKER_H
#define QTLOG_CONF_CHECKER_H

#include <QtCore/QString>

class QTextStream;

// Checks a settings file as the library reads it and writes a report to out:
// a warning for every line that does not do what it seems to, then the
// effective settings of each destination with where each value comes from,
// and sample lines rendered by each destination's formats.
//
// Returns the exit status of qtlog-conf: 0 without warnings, 1 with
// warnings, 2 when the file cannot be read (reported on err).
int checkSettingsFile(const QString &fileName, QTextStream &out, QTextStream &err);

#endif // QTLOG_CONF_CHECKER_H
