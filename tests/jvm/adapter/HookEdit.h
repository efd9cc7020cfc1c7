// What the test agent does in the class-load hook.
#pragma once

#include "jvmpi/jvmpi.h"

// Looks for the text constant "hook:<order>" in the class file and follows it:
//   grow      replaces the constant with a longer one, so that the new class file is larger
//   null      sets the new class data to null
//   off       switches the hook off from inside
//   keep      copies the class file unchanged into memory of the VM
// Every class file with such a constant is counted.
void editClass(JVMPI_Event& event, JVMPI_Interface& jvmpi);

// Class files with an order seen so far.
int editedClasses();

// All class files seen so far.
int hookedClasses();
