#pragma once

/// Everything that a client of the connector service needs.

#include "zam_connector/app_eula.h"
#include "zam_connector/app_updates.h"
#include "zam_connector/i_zam_conn_command_sender.h"
#include "zam_connector/i_zam_conn_controller.h"
#include "zam_connector/i_zam_conn_settings_holder.h"
#include "zam_connector/result_code.h"
#include "zam_connector/update_info.h"
#include "zam_connector/update_status_info.h"
#include "zam_connector/zam_connection_parameters.h"
#include "zam_connector/zam_connector_settings.h"
#include "zam_connector/zam_connector_state.h"
#include "zam_connector/zam_converter.h"
#include "zam_connector/zam_id.h"
