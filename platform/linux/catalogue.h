// The router's app catalogue, from state_dir/catalogue.json:
//   {"data":[{"class_type":"1","appid":[1001,1002]}, ...],"names":{"1001":"Video"}}
// "names" is for tools. Classes that make no sense are left out. The file is read again whenever it changed.
#ifndef PLATFORM_LINUX_CATALOGUE_H
#define PLATFORM_LINUX_CATALOGUE_H

#include "common/guards.h"

// The catalogue service's answer, {"err_no":"0","data":[...]}; null until a catalogue could be read once, or without memory.
// Any thread.
heap_text catalogue_answer();

#endif
