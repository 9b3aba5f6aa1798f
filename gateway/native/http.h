// Web servers of the emulated gateway, which answer as prepared and record what they are asked.
#pragma once

// Starts a process for each port named in the run's file "http"; returns when all of them listen.
// Each line of the file is one answer: PORT STATUS DELAY-MILLISECONDS PATH-IN-HEX BODY-FILE. The
// longest path that begins the request's target is chosen; without one, the answer is 404.
void http_start(void);
