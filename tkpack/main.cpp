// tkpack: the packager's tool.
#include "tkpack/tool.h"

int main(int argc, char** argv) { return tk::TkpackMain(argc, argv); }
