#include "velkor/batch.h"

int main(int argc, char** argv) { return velkor::batchMain(argc, argv); }
