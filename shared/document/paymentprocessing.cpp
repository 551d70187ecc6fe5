#include "shared/document/paymentprocessing.h"

PaymentProcessing::~PaymentProcessing() = default;
