// SPDX-License-Identifier: Apache-2.0
#pragma once

// Core Foundation's headers name these types of libdispatch in declarations that nothing here uses.
typedef struct dispatch_queue_s* dispatch_queue_t;
typedef struct dispatch_data_s* dispatch_data_t;
typedef struct dispatch_source_s* dispatch_source_t;
