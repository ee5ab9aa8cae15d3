/*
 * The host log: a text file beside the executable named after the service,
 * one line per event as "MM/DD/YY HH:MM:SS: text" ended by CR LF. Opened
 * lazily in append mode on the first line, written one whole line per write
 * and flushed at once, kept open until the process ends.
 */
#ifndef KESTREL_HOST_LOG_H
#define KESTREL_HOST_LOG_H

#include <ctime>
#include <string>

#include "RtsTypes.h"

namespace kestrel::host {

// Sets the file; a change of path closes the file opened for the old one.
void HostLogSetPath(const std::string &path);

// Appends one line; a null text only opens the file.
void HostLog(const char *pszText);
// Appends one formatted line; the format is the program's own text, never
// a name or a path (those go in as arguments).
void HostLogf(const char *pszFormat, ...)
#if defined(__GNUC__)
    __attribute__((format(printf, 1, 2)))
#endif
    ;

// Also writes each line to the console's standard error (management actions).
void HostLogSetEcho(bool bEcho);

// The line as written for a local time: "MM/DD/YY HH:MM:SS: text\r\n".
std::string HostLogFormatLine(const std::tm &localTime, const char *pszText);

} // namespace kestrel::host

#endif
