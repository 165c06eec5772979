// The console session of tkinstall: finds the core and platform packages beside
// the program, refuses to go on while the service of an existing installation is
// running, asks for the destination directory and its confirmation, installs both
// packages with TkPackage, runs the installation's post-install script once, and
// lists the profile settings to make. Standard input and standard output only.
//
// Not thread-safe: the session keeps the raw TAVIK environment text in one
// process-wide string and is meant to run once, on the main thread.
#ifndef TAVIK_INSTALLER_SESSION_H_
#define TAVIK_INSTALLER_SESSION_H_

namespace tk {

// Runs the whole session. Only argv[0], the program path, is used: the installer
// directory is its part before the last "tkinstall" (found ignoring case).
// Returns 0 after a successful installation, -1 for every failure and for quitting.
int InstallerMain(int argc, char** argv);

// Reads one line of at most size - 1 characters from standard input into `buffer`
// and drops its trailing line feed (a carriage return stays). At end of input or on
// a read error the buffer is left exactly as it was.
void ReadConsoleLine(char* buffer, int size);

// True when the TAVIK environment text noted by the session is not empty and the
// run marker Bin/tavik.run exists under the directory it names.
bool IsServiceRunning();

}  // namespace tk

#endif  // TAVIK_INSTALLER_SESSION_H_
