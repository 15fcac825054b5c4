// Identifiers of the provider library's resources. The dialogs' logic names
// the same numbers in dialog_ids and selection_ids (pin/dialog_toolkit.h);
// the Win32 toolkit checks at compile time that they agree.
#pragma once

#define IDB_KEYCARD 101
#define IDI_PROVIDER 103
#define IDD_SELECT_CARD 105
#define IDD_LOGIN 121

#define IDC_PIN_EDIT 1001
#define IDC_KEYCARD 1002
#define IDC_PIN_LABEL 1003
#define IDC_STATUS 1004
#define IDC_READERS 1005
#define IDC_CAPTION 1008
