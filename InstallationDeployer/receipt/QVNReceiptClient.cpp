#include "InstallationDeployer/receipt/QVNReceiptClient.h"
