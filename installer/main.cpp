// tkinstall: the console installer of the TAVIK server.
#include "installer/session.h"

int main(int argc, char** argv) { return tk::InstallerMain(argc, argv); }
