// The router's app catalogue: the installed one (the setting "catalogue") and the owner's, state_dir/catalogue.json, both as
//   {"data":[{"class_type":"1","appid":[1001,1002]}, ...],"names":{"1001":"Video"}}
// An app of the owner's file is added, or takes its class from there. "names" is for tools. Classes and ids that make no sense
// are left out. Files are read again whenever they changed; one that no longer makes sense leaves its last good contents in
// use.
#ifndef PLATFORM_LINUX_CATALOGUE_H
#define PLATFORM_LINUX_CATALOGUE_H

#include "common/guards.h"

// The catalogue service's answer, {"err_no":"0","data":[...]}; null until a catalogue could be read once, or without memory.
// Any thread.
heap_text catalogue_answer();

#endif
