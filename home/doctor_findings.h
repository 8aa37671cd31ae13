// What `appidentctl doctor` finds, for the technician's page.
#ifndef HOME_DOCTOR_FINDINGS_H
#define HOME_DOCTOR_FINDINGS_H

#include "common/guards.h"

#include <string>

// Runs the tool and adds its findings to the list as {"level":"ok"|"warning"|"fault","text":...}; one that the tool cannot be
// run is a finding too. Waits three seconds at most.
void add_doctor_findings(cJSON *list, const std::string &tool);

#endif
