#pragma once

#include <QElapsedTimer>
#include <QLabel>
#include <QPointer>
#include <QTimer>
#include <QWidget>
#include <functional>
#include <memory>

#include "model/model.h"

namespace kestravine {

class LogView;

// The whole content of the launcher's window: a title, and below it one of four arrangements
// chosen by the model's phase (checking; ready with the install offer, or the update offer with
// both versions and a quieter way to start the installed one; working with status, log and
// cancel; failed with the failure, collapsible details and retry). Owns the Model and turns
// clicks into its operations. When it first appears it brings the window to the front, runs
// check() and the model's automatic install (KESTRAVINE_LAUNCHER_AUTOSTART).
//
// Threading: GUI thread only. A change of phase or of the cancel offer re-renders at once; other
// model notifications only mark the view dirty, and it re-renders at most once per frame however
// many lines arrive.
class ContentView final : public QWidget {
  Q_OBJECT

 public:
  explicit ContentView(QWidget* parent = nullptr);
  ~ContentView() override;

  const Model& model() const { return *model_; }
  // The window has been closed: see Model::close().
  void closeFlow(std::function<void()> done);

 signals:
  // The flow is over for the window (a close, or the page opened): a window still shown goes.
  void flowClosed();

 public:
  // The title line: the headline when it is not empty, else "Kestravine".
  static QString titleFor(const std::string& headline);
  // `text` cut to at most `lines` lines at `width`, the last one ending in an ellipsis if cut.
  static QString elided(const QString& text, const QFont& font, int width, int lines);

 protected:
  void showEvent(QShowEvent* event) override;
  void changeEvent(QEvent* event) override;

 private:
  void scheduleRefresh();
  void refresh();
  void build(Model::Phase phase);
  void buildChecking();
  void buildReady();
  void buildUpdate();
  void buildWorking();
  void buildFailed();
  void setDetailsExpanded(bool expanded);
  std::uint64_t firstLineNumber() const;

  std::shared_ptr<Model> model_;
  int listenerId_ = -1;
  bool appeared_ = false;

  QWidget* column_ = nullptr;  // title and arrangement, anchored at the top
  QLabel* title_ = nullptr;
  QWidget* arrangement_ = nullptr;
  Model::Phase shownPhase_ = Model::Phase::checking;
  Model::Offer shownOffer_ = Model::Offer::install;
  // Parts of the current arrangement that follow the model; null where absent.
  QPointer<QLabel> status_;
  QPointer<QLabel> failure_;
  QPointer<LogView> log_;
  QPointer<QWidget> cancelRow_;
  QPointer<QWidget> details_;

  QTimer refreshTimer_;
  QElapsedTimer sinceRefresh_;
};

}  // namespace kestravine
