#pragma once

#include "nimbo/stream/element.h"

namespace nimbo::stream {

/// An element at the end of a pipeline: it has inputs only.
class NIMBO_API ISink : public virtual IElement {
 public:
  ISink();
  ~ISink() override;

  /// [control] Creates a port; `direction` must be "in". Null on failure.
  virtual IPort* CreatePort(const char* caps, const char* direction);
  /// [control] The input at `index`; one is added when `index` is the number of inputs. Null
  /// beyond.
  virtual IPort* CreatePortIn(const char* caps, int index);
  /// [control] Links an element's, or a port's, output to the next free input.
  virtual bool LinkFrom(IElement* source);
  virtual bool LinkFrom(IPort* source);
  /// [sending] Takes a packet from a sink that fetches its packets itself; false in all others.
  virtual bool ProcessPacket();
  /// [control] The input for a media; null when none fits.
  virtual IPort* SelectPortIn(IMedia* media);
  /// [control] How the sink is fed: 0, packets are pushed into it.
  virtual unsigned int InputMode() const;
  virtual bool ConsultInputMode(unsigned int mode);
  virtual bool ConsultBegin();
  virtual bool Consult();
  virtual bool ConsultEnd();
  /// [control] True when the element is no longer in play.
  virtual bool CheckInputStatusIsLeftFromPlay();
};

}  // namespace nimbo::stream
