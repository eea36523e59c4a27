#include "velkorClass.h"

const char* managecmd = "/_admin/Manage_KVF/manage.cmd";
const char* filecmd = "/_admin/Manage_KVF/files.cmd";
const char* cmdHeader = "<virtualIO><datastream name=\"command\"/></virtualIO>";
