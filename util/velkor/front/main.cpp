#include "velkor/velkor.h"

int main(int argc, char** argv) { return velkorMain(argc, argv); }
