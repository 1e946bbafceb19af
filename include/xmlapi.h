// xmlapi.h - the whole public interface of the XML library.
#pragma once

#include "ozmutil.h"
#include "xmldeque.h"
#include "xmltree.h"
#include "xmldtd.h"
#include "xmldocument.h"
#include "xmloutput.h"
#include "xmlresources.h"
#include "xmlcatalog.h"
#include "xmlvalidate.h"
