// Ends the test program with a word when a test leaves the job lock held: those behind it would all wait for a minute.
#pragma once

void watch_job_lock();
