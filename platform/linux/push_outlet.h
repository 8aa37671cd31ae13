// Where pushes and device-status records leave the daemon.
//
// new_push_msg and app_info_to_devpush copy and queue; a thread of its own writes each as a line of JSON to the spool file
// runtime_dir/pushes.jsonl (see push_spool.h) and to every subscriber of the stream socket runtime_dir/pushes.sock:
//   {"run":"0123456789abcdef","seq":1,"time":1700000000,"code":1008,"occur_time":0,"data":{...}}
// "run" is drawn at random at each start of the daemon. "seq" counts the calls of a run from 1 on, refused ones included, so
// that a lost push leaves a hole. "time" is the epoch second of the call, "data" the push's JSON (as a string if it does not
// parse). Device-status records are lines of code 0:
//   "data":[{"mac":"AA-BB-CC-DD-EE-FF","app_id":1001,"class_type":0,"app_status":1,"timestamp":1700000000}]
// 4,096 lines of 1 MiB wait at most, half of it presence (1023) and device status; what does not fit is refused and counted. So
// a burst of starts costs no report of what has ended, unless these alone are too many for the outlet.
#ifndef PLATFORM_LINUX_PUSH_OUTLET_H
#define PLATFORM_LINUX_PUSH_OUTLET_H

// Opens the socket and starts the thread; later calls do nothing. Any thread.
void push_outlet_start();

#endif
