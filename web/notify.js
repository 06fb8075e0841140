/** The service worker: lets the page be installed and shows its notices on a phone. It keeps nothing: a page from a store
 * would look healthy without a camera. */
self.addEventListener("install", () => self.skipWaiting());
self.addEventListener("activate", (event) => event.waitUntil(self.clients.claim()));
self.addEventListener("notificationclick", (event) => {
  event.notification.close();
  const open = async () => {
    const [page] = await self.clients.matchAll({ type: "window", includeUncontrolled: true });
    return page ? page.focus() : self.clients.openWindow("index.html");
  };
  event.waitUntil(open());
});
