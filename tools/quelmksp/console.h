// What the client asks of the console it runs in: whether a person is
// there to see a progress indicator or to answer a question, and whether
// the provider's PIN prompt is using the terminal just now.
#pragma once

bool StdinIsTerminal();
bool StderrIsTerminal();

// True while the terminal that stderr writes to reads keys without echo,
// which is how the provider's terminal PIN dialog holds it.
bool TerminalTakingSecretInput();
