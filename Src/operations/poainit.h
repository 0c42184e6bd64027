// Start-up: the ORB core calls _poa_init when it needs the root POA.
#pragma once

/// Whether the root POA is there.
extern bool initialised;
