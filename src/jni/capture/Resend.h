// The sampling rates and the names of portal methods, queued again for a new connection.
#pragma once

class ResendListener;

ResendListener& resendListener();  // valid for the life of the process
